// Reading of files that anybody may have put in place.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "util/unique_fd.h"

namespace bootforge {

/// Opens a file for reading, close-on-exec. What is no regular file (a folder, a FIFO, a device) is
/// never waited on: it counts as a file that cannot be opened, with errno EISDIR or ENXIO. No
/// descriptor and errno set on failure.
UniqueFd openRegularFile(const char* path);

/// The rest of an open file, or nothing and errno when reading fails.
std::optional<std::string> readAll(const UniqueFd& file);

/// The whole content of a regular file, or nothing and errno when it cannot be opened or read.
std::optional<std::string> readRegularFile(const char* path);

}  // namespace bootforge
