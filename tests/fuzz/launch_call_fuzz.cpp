// Any words as those of the launcher of init scripts: refused with a reason, or a script in its
// folder and a control group that stays below its place. Words end at line ends.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tools/launch/call.h"

namespace {

constexpr std::string_view kGroupWord = "++group=";

void require(bool condition) {
  if (!condition) std::abort();
}

/// Whether a folder of that relative path would stand below the one that it is relative to.
bool staysBelow(const std::string& path) {
  for (std::size_t at = 0; at <= path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string component = path.substr(at, end - at);
    if (component.empty() || component == "." || component == "..") return false;
    at = end + 1;
  }
  return true;
}

void check(const std::vector<std::string>& words, const LaunchCall& call) {
  const std::string name = words[0].substr(words[0].rfind('/') + 1);
  require(call.name == name);
  const bool hasGroup = words.size() > 1 && words[1].starts_with(kGroupWord);
  const std::string group = hasGroup ? words[1].substr(kGroupWord.size()) : "";
  const std::string script = "/etc/init.d/" + name;
  const bool good = hasGroup && staysBelow(group) && !name.empty() && script.size() < PATH_MAX;
  require(good == (call.reason == nullptr) && good == (call.subject == nullptr));
  if (good) require(call.script == script && call.group == group);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      words.emplace_back();
    } else if (data[i] != '\0') {
      words.back() += static_cast<char>(data[i]);
    }
  }
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  check(words, readLaunchCall(static_cast<int>(words.size()), arguments.data()));
  return 0;
}
