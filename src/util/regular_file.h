// Reading of files that anybody may have put in place.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "util/unique_fd.h"

namespace bootforge {

/// The most that is read of a file, or unpacked from one, into memory: 16 MiB. Nothing that the
/// program reads has a reason to be larger, and a boot must not die of a file that is.
inline constexpr std::size_t kReadLimit = std::size_t{16} << 20;

/// Opens a file for reading, close-on-exec. What is no regular file (a folder, a FIFO, a device) is
/// never waited on: it counts as a file that cannot be opened, with errno EISDIR or ENXIO. No
/// descriptor and errno set on failure.
UniqueFd openRegularFile(const char* path);

/// The rest of an open file, or nothing and errno when reading fails; EFBIG when there is more than
/// kReadLimit. `size`, where it is known, is what it was to have: then that ends it, too.
std::optional<std::string> readAll(const UniqueFd& file, std::optional<std::size_t> size = {});

/// The whole content of a regular file, or nothing and errno when it cannot be opened or read;
/// EFBIG when there is more than kReadLimit.
std::optional<std::string> readRegularFile(const char* path);

}  // namespace bootforge
