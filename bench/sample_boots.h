// Plugins for whole boots on the scratch host.
#pragma once

#include <string>

namespace bootforge::bench {

inline constexpr int kServicesInLayer = 10;

/// Writes so many descriptions of one command, "bench true", in layers: those of a layer open the
/// milestone that the next layer waits for.
void writeLayeredPlugins(const std::string& directory, int count);

/// Puts so many copies of one small shared object into a new folder: "libplugin-NUMBER.so".
void copyNativePlugins(const std::string& directory, int count);

}  // namespace bootforge::bench
