// The machine of an image.
#pragma once

#include <cstdint>
#include <vector>

#include "analyze/image/image.h"

namespace bootforge::analyze {

/// The machine of most native plugins; with equal numbers that of most ELF files of the root. 0
/// when there are none.
std::uint16_t machineOfImage(const RootFolder& root, const std::vector<PluginFile>& files);

}  // namespace bootforge::analyze
