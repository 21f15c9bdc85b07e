// What a native plugin says of itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bootforge {

/// The records of a shared object as plain data; see bootforge/plugin.h for their layout.
struct NativeRecord {
  std::int32_t apiVersion = 0;
  std::vector<std::string> provides;
  std::vector<std::string> requires_;
  std::vector<std::string> requiredFlags;   // from API version 3 on
  std::vector<std::string> disablingFlags;  // likewise
  std::string pluginVersion;                // likewise
  bool runOnce = false;                     // likewise
  bool hasApplyHostProfile = false;
};

namespace native {

inline constexpr const char* kMetadata = "metadata";
inline constexpr const char* kOperations = "operations";

constexpr bool isSupported(std::int32_t apiVersion) { return apiVersion >= 1 && apiVersion <= 4; }

/// How many bytes of the metadata record a version needs.
constexpr std::size_t metadataSize(std::int32_t apiVersion) { return apiVersion >= 3 ? 56 : 24; }
inline constexpr std::size_t kOperationsSize = 16;

// Why a record is rejected.
inline constexpr const char* kUnsupportedVersion = "Unsupported API version";
inline constexpr const char* kShortMetadata = "metadata record is shorter than its version needs";
inline constexpr const char* kShortOperations = "operations record is too short";
inline constexpr const char* kWildPointer = "a pointer in its records leads nowhere";

}  // namespace native
}  // namespace bootforge
