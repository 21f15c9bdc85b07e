// The init scripts of an image.
#pragma once

#include <string>
#include <vector>

#include "analyze/image/image.h"

namespace bootforge::analyze {

inline constexpr const char* kInitFolder = "/etc/init.d";
inline constexpr const char* kLauncher = "/usr/lib/nimbus/bootforge/launch";
inline constexpr const char* kLauncherLinks = "/usr/lib/nimbus/bootforge/init.d";

/// The scripts that "chkconfig -p" would list, and those that it would if they were executable
/// (they have no priority), by name. The path of a script with a launcher link is the link.
std::vector<InitScript> findInitScripts(const RootFolder& root);

/// Those of a list with lines PATH PRIORITY, in its order.
std::vector<InitScript> listedInitScripts(const RootFolder& root, const std::string& list);

}  // namespace bootforge::analyze
