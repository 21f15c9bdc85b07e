// What the loader of an image would say of its shared objects.
#pragma once

#include <vector>

#include "analyze/image/image.h"

namespace bootforge::analyze {

/// Fills in which of the native plugins are for another machine than most, or no shared objects at
/// all, and which lack libraries. The files must have been read.
void judgeAsLoader(const RootFolder& root, std::vector<PluginFile>& files);

}  // namespace bootforge::analyze
