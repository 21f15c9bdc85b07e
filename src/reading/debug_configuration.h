// The list of debug injections.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge {

inline constexpr const char* kDebugConfiguration = "/etc/nimbus/bootforge/debug.conf";

/// One injection: NAME:PROVIDES:REQUIRES:COMMAND.
struct DebugEntry {
  std::string name;
  std::vector<std::string> provides;
  std::vector<std::string> requires_;
  std::string command;
};

/// A line that says something, or that should.
struct DebugLine {
  int number = 0;      // from 1, blank lines counted
  std::size_t at = 0;  // offset in bytes of its first character that is no white space
  std::string text;    // trimmed
  std::optional<DebugEntry> entry;
  std::string badEscape;  // what is wrong with the escapes of its lists; empty for nothing
  /// Neither an entry nor a list that cannot be split: a line without exactly four fields.
  bool isMalformed() const { return !entry && badEscape.empty(); }
};

/// Reads the configuration, every line of it, whatever is wrong with those before.
std::vector<DebugLine> readDebugConfiguration(std::string_view text);

}  // namespace bootforge
