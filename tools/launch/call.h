// What the launcher's own words ask for: ".../NAME ++group=GROUP WORDS...".
#pragma once

#include <climits>

inline constexpr const char* kNoSuchScript = "there is no such script in /etc/init.d";

/// The script of a call, or why there is none. Points into the words.
struct LaunchCall {
  const char* name = nullptr;  // the script's, without a folder
  char* group = nullptr;       // no component of it is empty, "." or ".."
  char script[PATH_MAX] = "";  // the script's path
  /// Of a call that is refused: what it is about, and the reason; null otherwise.
  const char* subject = nullptr;
  const char* reason = nullptr;
};

/// Reads the words of a call. Whether there is such a script is not looked at.
LaunchCall readLaunchCall(int wordCount, char** words);
