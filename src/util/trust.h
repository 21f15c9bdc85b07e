// Which files are believed: others may be able to put theirs where we look for ours.
#pragma once

#include <sys/stat.h>

#include <string>

namespace bootforge {

/// The folder that a path's last component is in.
std::string folderOf(const std::string& path);

/// Whether a file belongs to root or to the user that this process runs as.
bool isOurs(const struct stat& status);

/// Whether a symbolic link may be followed to a file that is written to: it is ours, in a folder
/// that is ours and that nobody else may write.
bool isTrustedLink(const std::string& path);

}  // namespace bootforge
