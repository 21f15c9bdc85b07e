#include "util/trust.h"

#include <unistd.h>

namespace bootforge {

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool isOurs(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == ::geteuid();
}

bool isTrustedLink(const std::string& path) {
  struct stat folder {};
  struct stat link {};
  if (::stat(folderOf(path).c_str(), &folder) != 0) return false;
  if (!isOurs(folder) || (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0) return false;
  return ::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode) && isOurs(link);
}

}  // namespace bootforge
