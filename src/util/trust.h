// Which files are believed: others may be able to put theirs where we look for ours.
#pragma once

#include <sys/stat.h>

#include <string>

#include "util/unique_fd.h"

namespace bootforge {

/// The folder that a path's last component is in.
std::string folderOf(const std::string& path);

/// Whether a file belongs to root or to the user that this process runs as.
bool isOurs(const struct stat& status);

bool isSameFile(const struct stat& one, const struct stat& other);

/// Whether the folder that a path's last component is in is ours, and nobody else may write it.
bool isTrustedFolderOf(const std::string& path);

/// Whether an open file may be taken for the one that a path names. Where others may write the
/// folder, that is a regular file without any other name: no link of theirs leads to a file
/// elsewhere, and no FIFO of theirs makes us wait.
bool isTrustedFile(const UniqueFd& file, const std::string& path);

/// Whether a symbolic link may be followed to a file that is written to: it is ours, in a folder
/// that is ours and that nobody else may write.
bool isTrustedLink(const std::string& path);

}  // namespace bootforge
