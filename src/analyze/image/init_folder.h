// The init scripts of an image.
#pragma once

#include <string>
#include <vector>

#include "analyze/image/image.h"

namespace bootforge::analyze {

inline constexpr const char* kInitFolder = "/etc/init.d";
inline constexpr const char* kLauncher = BOOTFORGE_HELPER_DIR "/launch";
inline constexpr const char* kLauncherLinks = BOOTFORGE_HELPER_DIR "/init.d";

/// The scripts that "chkconfig -p" would list, and those that it would if they were executable
/// (they have no priority), by name. The path of a script with a launcher link is the link. What we
/// may not read is added to `unread`.
std::vector<InitScript> findInitScripts(const RootFolder& root, std::vector<std::string>* unread);

/// Those of a list with lines PATH PRIORITY, in its order.
std::vector<InitScript> listedInitScripts(const RootFolder& root, const std::string& list,
                                          std::vector<std::string>* unread);

}  // namespace bootforge::analyze
