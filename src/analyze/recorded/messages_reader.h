// What the captured messages of a run say about its plugins.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/recorded/known_names.h"

namespace bootforge::analyze {

/// A message as the capture has it.
struct ToldMessage {
  std::string time;  // empty where the line has none
  std::string text;
};

/// What is said about one plugin.
struct PluginMessages {
  enum class Outcome { None, Activated, Failed, Skipped };

  bool begun = false;
  std::string since;  // the time of the message that it has begun, as the capture has it
  Outcome outcome = Outcome::None;
  std::string reason;  // of a failure
  // All that the chosen run says about it: the kernel's log first, then the program's own.
  std::vector<ToldMessage> messages = {};
};

struct BootMessages {
  std::map<std::string, PluginMessages, std::less<>> plugins;  // by name
  bool readable = false;                                       // there was a message of ours
  bool tellsSuccess = false;  // the capture is one that tells when a plugin has ended well
};

/// Which of the runs in a capture is meant.
enum class WhichRun {
  Last,         // the last one that mentions a known name
  MostMentions  // the one that mentions most of the known names, of several the last
};

/// Reads a capture of standard output, of a syslog file or of the kernel's log. It may hold several
/// runs and foreign lines, and may be cut anywhere. Names are given as `known` has them, otherwise
/// as they stand.
BootMessages readMessages(std::string_view capture, const KnownNames& known, WhichRun which);

}  // namespace bootforge::analyze
