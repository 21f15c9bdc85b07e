// Any bytes as a JSON description: rejected for one of the known reasons, or a plugin that keeps
// what the format promises and that a description written from it gives again.
#include <sys/mman.h>
#include <unistd.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/string.hpp>
#include <boost/json/value.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "graph/barrier_registry.h"
#include "graph/init_barrier.h"
#include "plugins/exceptions.h"
#include "plugins/json_plugin.h"
#include "tests/support/barriers.h"

namespace {

using bootforge::JSONPlugin;
using Names = std::vector<std::string>;

const std::set<std::string> kReasons = {
    "no such file or directory",
    "plugin root is not an object",
    "invalid metadata interface",
    "metadata is corrupt (unable to parse version)",
    "Unsupported API version",
    "metadata is corrupt (unable to parse requires)",
    "requires tag is not a string",
    "metadata is corrupt (unable to parse provides)",
    "provides tag is not a string",
    "metadata is corrupt (unable to parse required_flags)",
    "required_flags tag is not a string",
    "metadata is corrupt (unable to parse disabling_flags)",
    "disabling_flags tag is not a string",
    "metadata is corrupt (unable to parse run_once)",
    "metadata is corrupt (unable to parse plugin_version)",
    "invalid operations interface",
    "operations is corrupt (unable to parse start)",
    "command is not a string",
    "operations is corrupt (unable to parse apply-host-profile)",
};

void require(bool condition) {
  if (!condition) std::abort();
}

/// A file in memory that holds the description, by its name.
class MemoryFile {
 public:
  const std::string& path() const { return path_; }
  void write(const std::string& text) const {
    require(::ftruncate(file_, 0) == 0);
    require(::pwrite(file_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  }

 private:
  const int file_ = ::memfd_create("description", MFD_CLOEXEC);
  const std::string path_ = "/proc/self/fd/" + std::to_string(file_);
};

/// The plugin that a text describes; null for a rejection, which must have a known reason.
std::unique_ptr<JSONPlugin> pluginOf(const std::string& text) {
  static const MemoryFile file;
  file.write(text);
  try {
    return std::make_unique<JSONPlugin>("fuzzed", file.path(), bootforge::test::barriers());
  } catch (const bootforge::InvalidPluginException& rejection) {
    const std::string what = rejection.what();
    const std::string head = "plugin `" + file.path() + "' is invalid: ";
    require(what.starts_with(head) && kReasons.contains(what.substr(head.size())));
    return nullptr;
  }
}

Names namesOf(const bootforge::Node::List& nodes) {
  Names names;
  for (const bootforge::Node* node : nodes) names.push_back(node->name());
  return names;
}

/// What can be seen of a plugin.
struct Meaning {
  explicit Meaning(const JSONPlugin& plugin)
      : version(plugin.apiVersion()),
        requiredFlags(plugin.requiredFlags()),
        disablingFlags(plugin.disablingFlags()),
        runOnce(plugin.runOnce()),
        pluginVersion(plugin.pluginVersion()),
        hostProfile(plugin.supportsApplyHostProfile()) {
    const bootforge::ScopedLock lock(bootforge::graphLock);
    required = namesOf(plugin.prerequisites());
    provided = namesOf(plugin.dependents());
  }
  bool operator==(const Meaning&) const = default;

  std::int32_t version;
  std::set<std::string> requiredFlags;
  std::set<std::string> disablingFlags;
  bool runOnce;
  std::string pluginVersion;
  bool hostProfile;
  Names required;
  Names provided;
};

template <typename Items>
boost::json::array listOf(const Items& items) {
  boost::json::array list;
  for (const std::string& item : items) list.emplace_back(item);
  return list;
}

std::string describe(const Meaning& meaning) {
  boost::json::object metadata{{"version", meaning.version},
                               {"requires", listOf(meaning.required)},
                               {"provides", listOf(meaning.provided)},
                               {"required_flags", listOf(meaning.requiredFlags)},
                               {"disabling_flags", listOf(meaning.disablingFlags)},
                               {"run_once", meaning.runOnce},
                               {"plugin_version", meaning.pluginVersion}};
  boost::json::object operations{{"start", boost::json::array()}};
  if (meaning.hostProfile) operations["apply_host_profile"] = boost::json::array();
  return boost::json::serialize(
      boost::json::object{{"metadata", metadata}, {"operations", operations}});
}

void checkPromises(const Meaning& meaning) {
  require(meaning.version >= 1 && meaning.version <= 4);
  require(meaning.version >= 2 || !meaning.hostProfile);
  if (meaning.version >= 3) return;
  require(meaning.requiredFlags.empty() && meaning.disablingFlags.empty());
  require(!meaning.runOnce && meaning.pluginVersion.empty());
}

void requireSame(const std::string& text, const Meaning& meaning) {
  const auto plugin = pluginOf(text);
  require(plugin != nullptr && Meaning(*plugin) == meaning);
}

/// Whatever became of the plugins, no milestone knows of them. Milestones stay for ever, and there
/// will be many.
void requireNoEdges() {
  for (const bootforge::InitBarrier* barrier : bootforge::test::barriers().allBarriers()) {
    const bootforge::ScopedLock lock(bootforge::graphLock);
    require(barrier->prerequisites().empty() && barrier->dependents().empty());
  }
}

}  // namespace

extern "C" {

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (const auto plugin = pluginOf(text)) {
    const Meaning meaning(*plugin);
    checkPromises(meaning);
    requireSame(describe(meaning), meaning);
    requireSame("/***/ // {\n" + text + "/* } \"", meaning);
  }
  static unsigned runs = 0;
  if (++runs % 1024 == 0) requireNoEdges();
  return 0;
}

}  // extern "C"
