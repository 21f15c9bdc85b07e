// The files of an image.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "util/unique_fd.h"

namespace bootforge::analyze {

/// What is known of a file: what a link leads to counts.
struct FileStatus {
  mode_t mode = 0;
  uid_t owner = 0;
  off_t size = 0;

  bool isRegular() const { return S_ISREG(mode); }
  bool isFolder() const { return S_ISDIR(mode); }
  /// Root may run what anybody may run.
  bool isExecutable() const { return isRegular() && (mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0; }
};

/// A folder that is looked at as if it were "/": paths are absolute inside it, and no link and no
/// ".." leads out of it, openat2(2) with RESOLVE_IN_ROOT. Nothing in it is ever written or waited
/// for.
class RootFolder {
 public:
  /// Throws Exception when the folder cannot be opened.
  explicit RootFolder(const std::string& path);

  /// A file or a folder; no descriptor and errno set when it cannot be opened.
  UniqueFd open(const std::string& path, int flags) const;

  /// The content of a regular file of at most 16 MiB; nothing and errno set otherwise: EFBIG for a
  /// larger one, ENXIO or EISDIR for what is no regular file.
  std::optional<std::string> read(const std::string& path, FileStatus* status = nullptr) const;

  /// As read(), of an entry of a folder that is open; cheaper for many files. `path` is the entry's
  /// path inside the root, for links.
  std::optional<std::string> readEntry(const UniqueFd& folder, const std::string& name,
                                       const std::string& path, FileStatus* status) const;

  std::optional<FileStatus> status(const std::string& path) const;

  /// What a link holds; nothing for what is none.
  std::optional<std::string> readLink(const std::string& path) const;

  /// The names in a folder, in the order in which the folder lists them; nothing and errno set when
  /// it cannot be read.
  std::optional<std::vector<std::string>> list(const std::string& path) const;

 private:
  UniqueFd root_;
};

/// The absolute form of a path inside a root, without empty and "." components.
std::string insideRoot(const std::string& path);

/// A folder's path and a name as one path.
std::string joined(const std::string& folder, const std::string& name);

}  // namespace bootforge::analyze
