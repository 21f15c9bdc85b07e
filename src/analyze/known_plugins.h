// What recorded boots need to know of an image.
#pragma once

#include <vector>

#include "analyze/image/image.h"
#include "analyze/recorded/known_plugin.h"

namespace bootforge::analyze {

/// The plugins of an image, or its init scripts, in linking order, left-out ones included.
std::vector<KnownPlugin> knownPlugins(const Image& image);

}  // namespace bootforge::analyze
