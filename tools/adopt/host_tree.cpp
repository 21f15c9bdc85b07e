#include "tools/adopt/host_tree.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "util/regular_file.h"
#include "util/system_error.h"

namespace bootforge::adopt {
namespace {

constexpr mode_t kPermissions = 07777;
constexpr int kMostLinks = 40;

Entry::Kind kindOf(mode_t mode) {
  if (S_ISREG(mode)) return Entry::Kind::kFile;
  if (S_ISLNK(mode)) return Entry::Kind::kLink;
  return S_ISDIR(mode) ? Entry::Kind::kFolder : Entry::Kind::kOther;
}

std::string contentOf(const UniqueFd& folder, const std::string& path) {
  const UniqueFd file(::openat(folder.get(), nameOf(path).c_str(),
                               O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  std::optional<std::string> content = file ? readAll(file) : std::nullopt;
  if (!content) throw Failure(path, errno);
  return *std::move(content);
}

/// Access lists and labels. Where one cannot be taken over, the file would mean something else.
void copyExtendedAttributes(const UniqueFd& from, const UniqueFd& to, const std::string& path) {
  std::string names(65536, '\0');
  const ssize_t length = ::flistxattr(from.get(), names.data(), names.size());
  if (length < 0 && errno != ENOTSUP) throw Failure(path, errno);
  names.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  for (std::size_t at = 0; at < names.size(); at = names.find('\0', at) + 1) {
    const char* const name = names.c_str() + at;
    std::string value(65536, '\0');
    const ssize_t size = ::fgetxattr(from.get(), name, value.data(), value.size());
    if (size < 0 && errno == ENODATA) continue;
    if (size < 0 || ::fsetxattr(to.get(), name, value.data(), static_cast<std::size_t>(size), 0)) {
      throw Failure(path, errno);
    }
  }
}

void takeOver(const UniqueFd& old, const UniqueFd& file, const std::string& path) {
  struct stat status {};
  if (::fstat(old.get(), &status) != 0) throw Failure(path, errno);
  if (::fchown(file.get(), status.st_uid, status.st_gid) != 0 ||
      ::fchmod(file.get(), status.st_mode & kPermissions) != 0) {
    throw Failure(path, errno);
  }
  copyExtendedAttributes(old, file, path);
}

void writeAll(const UniqueFd& file, const std::string& content, const std::string& path) {
  for (std::size_t done = 0; done < content.size();) {
    const ssize_t count = retryInterrupted(
        [&] { return ::write(file.get(), content.data() + done, content.size() - done); });
    if (count < 0) throw Failure(path, errno);
    done += static_cast<std::size_t>(count);
  }
}

void sync(const UniqueFd& file, const std::string& path) {
  if (retryInterrupted([&] { return ::fsync(file.get()); }) == 0) return;
  // Where a file system has no such thing, there is nothing to be waited for.
  if (errno != EINVAL) throw Failure(path, errno);
}

}  // namespace

Failure::Failure(const std::string& path, int error)
    : Exception(path + ": " + systemErrorText(error)) {}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string temporaryName(const std::string& path) { return path + ".bootforge-new"; }

UniqueFd HostTree::folderFor(const std::string& path) const {
  UniqueFd folder = root_.open(folderOf(path), O_RDONLY | O_DIRECTORY);
  if (!folder) throw Failure(folderOf(path), errno);
  return folder;
}

void HostTree::touched(const std::string& path) { unsettled_.insert(folderOf(path)); }

void HostTree::lock(const std::string& folder) {
  lock_ = root_.open(folder, O_RDONLY | O_DIRECTORY);
  if (!lock_) throw Failure(folder, errno);
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) throw Failure(folder, errno);
  throw Exception("another run of bootforge-adopt is at work");
}

Entry HostTree::look(const std::string& path) const {
  const UniqueFd folder = root_.open(folderOf(path), O_PATH | O_DIRECTORY);
  struct stat status {};
  const std::string name = nameOf(path);
  if (!folder || ::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return {};
    throw Failure(path, errno);
  }
  Entry entry{kindOf(status.st_mode), "", status.st_mode & kPermissions, status.st_uid,
              status.st_gid};
  if (entry.isFile()) entry.content = contentOf(folder, path);
  if (entry.kind == Entry::Kind::kLink) {
    const std::optional<std::string> target = root_.readLink(path);
    if (!target) throw Failure(path, errno);
    entry.content = *target;
  }
  return entry;
}

std::vector<std::string> HostTree::list(const std::string& path) const {
  std::optional<std::vector<std::string>> names = root_.list(path);
  if (!names && errno != ENOENT && errno != ENOTDIR) throw Failure(path, errno);
  return std::move(names).value_or(std::vector<std::string>());
}

void HostTree::makeFolder(const std::string& path) {
  const UniqueFd folder = folderFor(path);
  const std::string name = nameOf(path);
  if (::mkdirat(folder.get(), name.c_str(), kNewFolder) != 0) throw Failure(path, errno);
  touched(path);
  if (::fchmodat(folder.get(), name.c_str(), kNewFolder, 0) != 0) throw Failure(path, errno);
}

void HostTree::makeLink(const std::string& path, const std::string& target) {
  const UniqueFd folder = folderFor(path);
  if (::symlinkat(target.c_str(), folder.get(), nameOf(path).c_str()) != 0) {
    throw Failure(path, errno);
  }
  touched(path);
}

void HostTree::write(const std::string& path, const std::string& content) {
  const UniqueFd folder = folderFor(path);
  const std::string temporary = nameOf(temporaryName(path));
  const UniqueFd old(
      ::openat(folder.get(), nameOf(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!old && errno != ENOENT) throw Failure(path, errno);
  const UniqueFd file(::openat(folder.get(), temporary.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                               S_IRUSR | S_IWUSR));
  if (!file) throw Failure(temporaryName(path), errno);
  try {
    writeAll(file, content, temporaryName(path));
    if (old) {
      takeOver(old, file, temporaryName(path));
    } else if (::fchmod(file.get(), kNewFile) != 0) {
      throw Failure(temporaryName(path), errno);
    }
    sync(file, temporaryName(path));
    const std::string name = nameOf(path);
    if (::renameat(folder.get(), temporary.c_str(), folder.get(), name.c_str()) != 0) {
      throw Failure(path, errno);
    }
  } catch (const Failure&) {
    ::unlinkat(folder.get(), temporary.c_str(), 0);
    throw;
  }
  touched(path);
}

void HostTree::addName(const std::string& path, const std::string& name) {
  const UniqueFd from = folderFor(path);
  const UniqueFd to = folderFor(name);
  if (::linkat(from.get(), nameOf(path).c_str(), to.get(), nameOf(name).c_str(), 0) != 0) {
    throw Failure(name, errno);
  }
  touched(name);
}

void HostTree::move(const std::string& path, const std::string& target) {
  const UniqueFd from = folderFor(path);
  const UniqueFd to = folderFor(target);
  if (::renameat(from.get(), nameOf(path).c_str(), to.get(), nameOf(target).c_str()) != 0) {
    throw Failure(target, errno);
  }
  touched(path);
  touched(target);
}

void HostTree::setAttributes(const std::string& path, const Entry& like) {
  const UniqueFd folder = folderFor(path);
  const std::string name = nameOf(path);
  if (::fchownat(folder.get(), name.c_str(), like.owner, like.group, AT_SYMLINK_NOFOLLOW) != 0 ||
      ::fchmodat(folder.get(), name.c_str(), like.mode, 0) != 0) {
    throw Failure(path, errno);
  }
}

void HostTree::remove(const std::string& path) {
  const UniqueFd folder = folderFor(path);
  if (::unlinkat(folder.get(), nameOf(path).c_str(), 0) != 0) throw Failure(path, errno);
  touched(path);
}

void HostTree::removeFolder(const std::string& path) {
  const UniqueFd folder = folderFor(path);
  if (::unlinkat(folder.get(), nameOf(path).c_str(), AT_REMOVEDIR) != 0) throw Failure(path, errno);
  unsettled_.erase(path);
  touched(path);
}

void HostTree::settle() {
  for (const std::string& path : unsettled_) {
    const UniqueFd folder = root_.open(path, O_RDONLY | O_DIRECTORY);
    if (!folder) throw Failure(path, errno);
    sync(folder, path);
  }
  unsettled_.clear();
}

std::string resolve(const analyze::RootFolder& root, const std::string& path, bool follow) {
  std::string resolved;
  std::string rest = path;
  int links = 0;
  while (true) {
    rest.erase(0, std::min(rest.find_first_not_of('/'), rest.size()));
    if (rest.empty()) return resolved.empty() ? "/" : resolved;
    const std::size_t end = std::min(rest.find('/'), rest.size());
    const std::string name = rest.substr(0, end);
    rest.erase(0, end);
    if (name == ".") continue;
    if (name == "..") {
      resolved.erase(std::min(resolved.rfind('/'), resolved.size()));
      continue;
    }
    const std::string next = resolved + '/' + name;
    const bool isLast = rest.find_first_not_of('/') == std::string::npos;
    const std::optional<std::string> target =
        isLast && !follow ? std::nullopt : root.readLink(next);
    if (!target) {
      resolved = next;
      continue;
    }
    if (++links > kMostLinks) throw Failure(path, ELOOP);
    if (target->starts_with('/')) resolved.clear();
    rest = *target + rest;
  }
}

}  // namespace bootforge::adopt
