// From a file name to plugins.
#pragma once

#include <string>

#include "catalogue/admission.h"
#include "catalogue/catalogue.h"

namespace bootforge {

/// Decides the kind of a file in the plugin directory by its extension, constructs its plugin and
/// admits it to the run, or not. A file that yields no plugin is reported in the log, an unusable
/// one as a system alert too. Throws nothing. Main thread.
void discoverPlugin(const std::string& fileName, const std::string& pluginDirectory,
                    Selection& selection, Catalogue& catalogue);

}  // namespace bootforge
