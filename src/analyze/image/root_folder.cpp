#include "analyze/image/root_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "util/exception.h"
#include "util/regular_file.h"
#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

// Neither a FIFO nor a terminal may hold us up.
constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

std::optional<FileStatus> statusOf(const UniqueFd& file) {
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return std::nullopt;
  return FileStatus{status.st_mode, status.st_uid, status.st_size};
}

std::optional<std::string> readFile(const UniqueFd& file, FileStatus* status) {
  const std::optional<FileStatus> known = statusOf(file);
  if (!known) return std::nullopt;
  if (status != nullptr) *status = *known;
  if (!known->isRegular()) {
    errno = known->isFolder() ? EISDIR : ENXIO;
    return std::nullopt;
  }
  return readAll(file, static_cast<std::size_t>(known->size));
}

/// Where openat2(2) does not serve: resolves links component by component.
UniqueFd openByWalking(const UniqueFd& root, const std::string& path, int flags) {
  constexpr int kMostLinks = 40;
  std::vector<UniqueFd> folders;  // those above the place, the root left out
  std::string rest = path;
  int links = 0;
  if (path.empty()) {
    errno = ENOENT;
    return UniqueFd();
  }
  const auto here = [&] { return folders.empty() ? root.get() : folders.back().get(); };
  while (true) {
    rest.erase(0, std::min(rest.find_first_not_of('/'), rest.size()));
    const std::size_t end = std::min(rest.find('/'), rest.size());
    const std::string name = rest.substr(0, end);
    const bool isLast = rest.find_first_not_of('/', end) == std::string::npos;
    rest.erase(0, end);
    if (name == ".." && !folders.empty()) folders.pop_back();
    if (name.empty() || name == "." || name == "..") {
      if (isLast) return UniqueFd(::openat(here(), ".", flags));
      continue;
    }
    char target[4096];
    const ssize_t length = ::readlinkat(here(), name.c_str(), target, sizeof target);
    if (length >= 0) {
      if (++links > kMostLinks) {
        errno = ELOOP;
        return UniqueFd();
      }
      const std::string link(target, static_cast<std::size_t>(length));
      if (link.starts_with('/')) folders.clear();
      rest = link + rest;
      continue;
    }
    // What stands before a slash has to be a folder.
    const int lastFlags = rest.empty() ? flags : flags | O_DIRECTORY;
    UniqueFd next(::openat(here(), name.c_str(),
                           (isLast ? lastFlags : O_PATH | O_DIRECTORY | O_CLOEXEC) | O_NOFOLLOW));
    if (!next || isLast) return next;
    folders.push_back(std::move(next));
  }
}

}  // namespace

RootFolder::RootFolder(const std::string& path)
    : root_(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (!root_) throw Exception("cannot read the root " + path + ": " + systemErrorText(errno));
}

UniqueFd RootFolder::open(const std::string& path, int flags) const {
  open_how how{};
  how.flags = static_cast<unsigned>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
  // The kernel gives up at a ".." when anything has been renamed or mounted meanwhile.
  constexpr int kMostAttempts = 16;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const long file = retryInterrupted(
        [&] { return ::syscall(SYS_openat2, root_.get(), path.c_str(), &how, sizeof how); });
    if (file >= 0) return UniqueFd(static_cast<int>(file));
    if (errno != EAGAIN) break;
  }
  if (errno != ENOSYS && errno != EPERM && errno != EAGAIN) return UniqueFd();
  return openByWalking(root_, path, flags | O_CLOEXEC);
}

std::optional<std::string> RootFolder::read(const std::string& path, FileStatus* status) const {
  return readFile(open(path, kReadFlags), status);
}

std::optional<std::string> RootFolder::readEntry(const UniqueFd& folder, const std::string& name,
                                                 const std::string& path,
                                                 FileStatus* status) const {
  const UniqueFd file(::openat(folder.get(), name.c_str(), kReadFlags | O_NOFOLLOW));
  if (!file && errno == ELOOP) return read(path, status);
  return readFile(file, status);
}

std::optional<FileStatus> RootFolder::status(const std::string& path) const {
  return statusOf(open(path, O_PATH));
}

std::optional<std::string> RootFolder::readLink(const std::string& path) const {
  const std::size_t slash = path.rfind('/');
  const UniqueFd folder = open(path.substr(0, slash + 1), O_PATH | O_DIRECTORY);
  if (!folder) return std::nullopt;
  char target[4096];
  const ssize_t length =
      ::readlinkat(folder.get(), path.c_str() + slash + 1, target, sizeof target);
  if (length < 0) return std::nullopt;
  return std::string(target, static_cast<std::size_t>(length));
}

std::optional<std::vector<std::string>> RootFolder::list(const std::string& path) const {
  UniqueFd folder = open(path, O_RDONLY | O_DIRECTORY);
  if (!folder) return std::nullopt;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(folder.get()), &::closedir);
  if (!stream) return std::nullopt;
  folder.release();
  std::vector<std::string> names;
  while (errno = 0, true) {
    const dirent* const entry = ::readdir(stream.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return std::nullopt;
  return names;
}

std::string insideRoot(const std::string& path) {
  std::string result;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    const std::string name = path.substr(at, end - at);
    if (!name.empty() && name != ".") result += '/' + name;
    at = end + 1;
  }
  return result.empty() ? "/" : result;
}

std::string joined(const std::string& folder, const std::string& name) {
  return insideRoot(folder + '/' + name);
}

}  // namespace bootforge::analyze
