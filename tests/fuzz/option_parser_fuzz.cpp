// Any bytes as a command line: it is parsed or refused, and what was parsed can be said again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/linux/command_line.h"

namespace {

/// A word in single quotes, as a shell takes it.
std::string quoted(const std::string& word) {
  std::string text = "'";
  for (char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

/// A line that must mean the same as the one it was read from.
std::string sayAgain(const host_linux::CommandLine& line) {
  std::string text;
  for (const std::string& word : line.path) text += quoted(word) + " ";
  for (const auto& [name, value] : line.parameters) {
    // One dash would make two of a name that begins with one.
    text += quoted((name.starts_with('-') ? "--" : "-") + name + "=" + value) + " ";
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  host_linux::CommandLine line = host_linux::parseLine({reinterpret_cast<const char*>(data), size});
  if (!line.errors.empty()) return 0;
  std::size_t length = line.path.empty() ? 0 : line.path.size() - 1;
  for (const std::string& word : line.path) length += word.size();
  if (host_linux::joinWords(line.path).size() != length) std::abort();
  host_linux::CommandLine again = host_linux::parseLine(sayAgain(line));
  if (!again.errors.empty() || again.path != line.path || again.parameters != line.parameters) {
    std::abort();
  }
  return 0;
}
