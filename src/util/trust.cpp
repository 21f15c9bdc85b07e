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

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isTrustedFolderOf(const std::string& path) {
  struct stat folder {};
  return ::stat(folderOf(path).c_str(), &folder) == 0 && isOurs(folder) &&
         (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool isTrustedFile(const UniqueFd& file, const std::string& path) {
  if (isTrustedFolderOf(path)) return true;
  struct stat opened {};
  struct stat named {};
  if (::fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode)) return false;
  // The name is looked at after the file was opened, and its number of names with it: otherwise a
  // second name could come and go in between.
  return ::lstat(path.c_str(), &named) == 0 && isSameFile(opened, named) && named.st_nlink == 1;
}

bool isTrustedLink(const std::string& path) {
  struct stat link {};
  return isTrustedFolderOf(path) && ::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode) &&
         isOurs(link);
}

}  // namespace bootforge
