#include "plugins/json_plugin.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "cli/hypcli_executor.h"
#include "platform/log.h"
#include "plugins/exceptions.h"
#include "util/json_comments.h"
#include "util/regular_file.h"

namespace bootforge {
namespace {

namespace json = boost::json;

/// The first value of a text, comments allowed and what follows it ignored; null for no JSON at
/// all.
json::value parseFirstValue(std::string text, json::storage_ptr storage) {
  blankComments(text);
  json::parse_options options;
  options.allow_invalid_utf8 = true;
  // The parser recurses once a level: deep enough for anybody, shallow enough for the stack.
  options.max_depth = 4096;
  // What the parser needs while it works; on the stack, to spare the heap for every description.
  unsigned char scratch[4096];
  json::parser parser({}, options, scratch, sizeof scratch);
  parser.reset(std::move(storage));
  boost::system::error_code error;
  parser.write_some(text.data(), text.size(), error);
  return error ? json::value() : parser.release();
}

bool holdsStringsOnly(const json::array& list) {
  return std::all_of(list.begin(), list.end(),
                     [](const json::value& element) { return element.is_string(); });
}

std::string_view textOf(const json::value& text) { return text.get_string(); }

/// Reads one description; whatever is wrong with it is thrown as InvalidPluginException.
class Description {
 public:
  explicit Description(const std::string& path) : path_(path), root_(read()) {
    if (!root_.is_object()) reject("plugin root is not an object");
  }

  [[noreturn]] void reject(const std::string& reason) const {
    throw InvalidPluginException(path_, reason);
  }

  const json::object& section(const char* key, const char* reason) const {
    const json::value* const value = root_.get_object().if_contains(key);
    if (value == nullptr || !value->is_object()) reject(reason);
    return value->get_object();
  }

  /// A list of names; all of it is checked before any of it is used.
  const json::array& names(const json::object& metadata, std::string_view key) const {
    const json::value* const value = metadata.if_contains(key);
    if (value == nullptr || !value->is_array()) {
      reject("metadata is corrupt (unable to parse " + std::string(key) + ")");
    }
    const json::array& list = value->get_array();
    if (!holdsStringsOnly(list)) reject(std::string(key) + " tag is not a string");
    return list;
  }

  std::vector<std::string> commands(const json::array& list) const {
    if (!holdsStringsOnly(list)) reject("command is not a string");
    std::vector<std::string> result;
    result.reserve(list.size());
    for (const json::value& command : list) result.emplace_back(textOf(command));
    return result;
  }

  std::int32_t apiVersion(const json::object& metadata) const {
    const json::value* const value = metadata.if_contains("version");
    if (value == nullptr || !value->is_number()) {
      reject("metadata is corrupt (unable to parse version)");
    }
    // Every version that is good has an exact double, so a number of any kind and size may be
    // looked at as one; it is truncated only where that is safe.
    const double number = value->to_number<double>();
    if (!(number >= 1 && number < 5)) reject("Unsupported API version");
    return static_cast<std::int32_t>(number);
  }

 private:
  json::value read() {
    std::optional<std::string> text = readRegularFile(path_.c_str());
    if (!text) reject("no such file or directory");
    return parseFirstValue(*std::move(text), &memory_);
  }

  const std::string& path_;
  unsigned char buffer_[4096];
  json::monotonic_resource memory_{buffer_, sizeof buffer_};
  const json::value root_;
};

}  // namespace

JSONPlugin::JSONPlugin(std::string name, const std::string& path) : Plugin(std::move(name)) {
  const Description description(path);
  const json::object& metadata = description.section("metadata", "invalid metadata interface");
  apiVersion_ = description.apiVersion(metadata);
  for (const json::value& milestone : description.names(metadata, "requires")) {
    require(textOf(milestone));
  }
  for (const json::value& milestone : description.names(metadata, "provides")) {
    provide(textOf(milestone));
  }
  if (apiVersion_ >= 3) {
    for (const auto& [key, flags] : {std::pair("required_flags", &requiredFlags_),
                                     std::pair("disabling_flags", &disablingFlags_)}) {
      if (!metadata.contains(key)) continue;
      for (const json::value& flag : description.names(metadata, key)) {
        flags->emplace(textOf(flag));
      }
    }
    const json::value* const runOnce = metadata.if_contains("run_once");
    if (runOnce == nullptr || !runOnce->is_bool()) {
      description.reject("metadata is corrupt (unable to parse run_once)");
    }
    runOnce_ = runOnce->get_bool();
    const json::value* const version = metadata.if_contains("plugin_version");
    if (version == nullptr || !version->is_string()) {
      description.reject("metadata is corrupt (unable to parse plugin_version)");
    }
    pluginVersion_ = version->get_string();
  }

  const json::object& operations =
      description.section("operations", "invalid operations interface");
  const json::value* const startList = operations.if_contains("start");
  if (startList == nullptr || !startList->is_array()) {
    description.reject("operations is corrupt (unable to parse start)");
  }
  startCommands_ = description.commands(startList->get_array());
  if (apiVersion_ < 2) return;
  const json::value* const profileList = operations.if_contains("apply_host_profile");
  if (profileList == nullptr) return;
  if (!profileList->is_array()) {
    description.reject("operations is corrupt (unable to parse apply-host-profile)");
  }
  applyHostProfileCommands_ = description.commands(profileList->get_array());
  hasApplyHostProfile_ = true;
}

void JSONPlugin::start() { runCommands("start", startCommands_); }

bool JSONPlugin::supportsApplyHostProfile() const {
  return apiVersion_ > 1 && hasApplyHostProfile_;
}

void JSONPlugin::applyHostProfile() {
  runCommands("apply_host_profile", applyHostProfileCommands_);
}

void JSONPlugin::runCommands(const char* method, const Commands& commands) {
  std::size_t failures = 0;
  for (const std::string& command : commands) {
    try {
      HypcliExecutor::instance().runCommand(command);
    } catch (const std::exception& error) {
      Log_Level(2, "%s\n", error.what());
      ++failures;
    } catch (...) {
      ++failures;
    }
  }
  if (failures != 0) throw MethodFailedException(name(), method, "error while executing the cli");
}

}  // namespace bootforge
