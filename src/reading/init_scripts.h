// What init scripts, their links and lists of them say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge {

/// A line "PATH PRIORITY" of a list of init scripts.
struct InitListLine {
  std::string path;
  std::int32_t priority = 0;  // 0 where it cannot be read
  std::size_t at = 0;         // offset in bytes of the line
};

/// Reads one line; nothing for a blank one.
std::optional<InitListLine> readInitListLine(std::string_view line);

/// Reads a whole list, blank lines left out.
std::vector<InitListLine> readInitList(std::string_view text);

/// The START of a line "# chkconfig: LEVELS START STOP" among a script's comments.
std::optional<int> startPriorityIn(std::string_view script);

/// Whether a script has the header of the Linux Standard Base, "### BEGIN INIT INFO".
bool hasLsbHeader(std::string_view script);

/// The NN of a run level's link "SNN<name>" to the script of that name.
std::optional<int> startNumberOf(std::string_view link, std::string_view name);

}  // namespace bootforge
