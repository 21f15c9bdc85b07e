// Any bytes as an init script, as a list of scripts, and as a run level's link, compared with
// another reader of each. What belongs to which is divided by zero bytes: SCRIPT, LIST, LINK, NAME.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "reading/init_scripts.h"

namespace {

using Strings = std::vector<std::string>;

void require(bool condition) {
  if (!condition) std::abort();
}

/// What stands between separators; the last piece only when there is something in it.
Strings split(const std::string& text, const std::string& separators, bool keepEmpty) {
  Strings pieces;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
    if (end > at || keepEmpty) pieces.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return pieces;
}

Strings linesOf(const std::string& text) { return split(text, "\n", true); }
Strings wordsOf(const std::string& text) { return split(text, " \t\n\v\f\r", false); }

/// A whole decimal number that an int holds, "-7" too and "+7" not.
std::optional<int> wholeNumber(const std::string& text) {
  const std::size_t sign = text.starts_with('-') ? 1 : 0;
  if (text.size() == sign || text.find_first_not_of("0123456789", sign) != std::string::npos) {
    return std::nullopt;
  }
  errno = 0;
  const long value = std::strtol(text.c_str(), nullptr, 10);
  if (errno != 0 || value != static_cast<int>(value)) return std::nullopt;
  return static_cast<int>(value);
}

std::optional<int> priorityIn(const std::string& script) {
  for (const std::string& line : linesOf(script)) {
    if (!line.starts_with('#')) continue;
    const Strings words = wordsOf(line.substr(1));
    if (words.size() >= 4 && words[0] == "chkconfig:" && wholeNumber(words[3])) {
      return wholeNumber(words[2]);
    }
  }
  return std::nullopt;
}

/// The number at the head of a word as a stream reads it: 0 for none, the nearest for one too
/// large.
std::int32_t headNumber(const std::string& word) {
  const long value = std::strtol(word.c_str(), nullptr, 10);
  constexpr long kLeast = std::numeric_limits<std::int32_t>::min();
  constexpr long kMost = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::min(std::max(value, kLeast), kMost));
}

void checkScript(const std::string& script) {
  require(bootforge::startPriorityIn(script) == priorityIn(script));
  require(bootforge::hasLsbHeader(script) ==
          (script.starts_with("### BEGIN INIT INFO") ||
           script.find("\n### BEGIN INIT INFO") != std::string::npos));
}

void checkList(const std::string& list) {
  const auto read = bootforge::readInitList(list);
  std::size_t index = 0;
  std::size_t at = 0;
  for (const std::string& line : linesOf(list)) {
    const Strings words = wordsOf(line);
    if (!words.empty()) {
      require(index < read.size() && read[index].path == words[0] && read[index].at == at);
      require(read[index].priority == (words.size() > 1 ? headNumber(words[1]) : 0));
      ++index;
    }
    at += line.size() + 1;
  }
  require(index == read.size());
}

void checkLink(const std::string& link, const std::string& name) {
  const auto number = bootforge::startNumberOf(link, name);
  if (number) require(link.starts_with('S') && link.ends_with(name));
  // Every number is found in the link that is made of it.
  if (number)
    require(bootforge::startNumberOf("S" + std::to_string(*number) + name, name) == number);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Strings parts = split({reinterpret_cast<const char*>(data), size}, std::string(1, '\0'), true);
  parts.resize(std::max<std::size_t>(parts.size(), 4));
  checkScript(parts[0]);
  checkList(parts[1]);
  checkLink(parts[2], parts[3]);
  return 0;
}
