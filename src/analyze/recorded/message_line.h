// One line of a capture.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bootforge::analyze {

/// A message of ours, taken out of what a log has put around it.
struct MessageLine {
  std::string_view time;     // the line's time stamp as it stands; empty where it has none
  std::string_view process;  // the process id's digits; empty for a message in the kernel's log
  std::string_view text;
};

/// Takes apart a line of standard output, of a syslog file (classic or RFC 3339 time stamps, with
/// or without facility) or of the kernel's log (as dmesg, consoles and journals print it); none
/// when it is no message of ours.
std::optional<MessageLine> readMessageLine(std::string_view line);

/// The line without a carriage return at its end and without a terminal's colours.
std::string withoutColours(std::string_view line);

}  // namespace bootforge::analyze
