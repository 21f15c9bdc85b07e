// From a file name to plugins.
#pragma once

#include <set>
#include <string>

#include "catalogue/catalogue.h"
#include "main/run_options.h"

namespace bootforge {

/// Decides the kind of a file in the plugin directory by its extension, constructs its plugin and
/// appends it to the plugins, unless the deny list or the boot flags are against it: then it is
/// kept apart and marked done, so that the milestones it is tied to open as if it had run. A
/// run-once plugin whose key is in `runOnce` is appended but marked done; others of that kind add
/// their key. A file that yields no plugin is reported in the log, an unusable one as a system
/// alert too. Throws nothing. Main thread.
void discoverPlugin(const std::string& fileName, Catalogue& catalogue,
                    const std::set<std::string>& bootFlags, std::set<std::string>& runOnce,
                    const RunOptions& options);

}  // namespace bootforge
