#include "platform/config_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <fts.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/linux/descriptor.h"
#include "platform/log.h"

namespace HypConfigStore {
namespace {

constexpr const char* kAutoConfMarker = "/var/run/nimbus/configstore/autoconf";
constexpr const char* kBootState = "/var/run/nimbus/configstore/boot-state";

using Walk = std::unique_ptr<FTS, decltype([](FTS* walk) { ::fts_close(walk); })>;

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
  throw std::runtime_error("cannot remove " + path + ": " + reason);
}

/// True also where a folder of the same file system is mounted once more.
bool isMount(const FTSENT& entry, dev_t device) {
  struct statx status {};
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (::statx(AT_FDCWD, entry.fts_accpath, kFlags, STATX_TYPE, &status) == 0 &&
      (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
    return true;
  }
  return entry.fts_statp->st_dev != device;
}

/// 0, ENOTEMPTY, or why a folder cannot be listed.
int whyNotEmpty(const char* folder) {
  const std::unique_ptr<DIR, decltype([](DIR* list) { ::closedir(list); })> list(::opendir(folder));
  if (!list) return errno;
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(list.get());
    if (entry == nullptr) return errno;
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") return ENOTEMPTY;
  }
}

/// Removes everything below a folder, in one walk without recursion. What is in it may belong to
/// others, who may put a link in the place of a folder of theirs at any moment: names are removed
/// from folders that were opened one by one, without following links.
class Cleaning {
 public:
  void run(const char* folder) {
    root_ = folder;
    char* const roots[] = {const_cast<char*>(folder), nullptr};
    // Links are not followed, and the working directory is not left: other threads have it too.
    const Walk walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr));
    if (!walk) fail(std::string("what is below ") + folder, host_linux::errorText(errno));
    bool somethingStays = false;
    while (FTSENT* entry = ::fts_read(walk.get())) {
      visit(walk.get(), *entry);
      if (entry->fts_level == FTS_ROOTLEVEL) somethingStays = entry->fts_number != 0;
    }
    // It is set to 0 at the end of the walk.
    if (errno != 0) fail(std::string("what is below ") + folder, host_linux::errorText(errno));
    // A listing that fails looks to the walk like one that has ended.
    const int error = somethingStays ? 0 : whyNotEmpty(folder);
    if (error != 0) fail(std::string("what is below ") + folder, host_linux::errorText(error));
    if (failures_ == 1) throw std::runtime_error(firstFailure_);
    if (failures_ > 1) {
      throw std::runtime_error(firstFailure_ + ", and " + std::to_string(failures_ - 1) +
                               " more that could not be removed");
    }
  }

 private:
  void visit(FTS* walk, FTSENT& entry) {
    const bool isRoot = entry.fts_level == FTS_ROOTLEVEL;
    if (isRoot && entry.fts_info == FTS_D) device_ = entry.fts_statp->st_dev;
    switch (entry.fts_info) {
      case FTS_D:
        if (!isRoot && isMount(entry, device_)) {
          leaveMount(entry);
          ::fts_set(walk, &entry, FTS_SKIP);
        }
        break;
      case FTS_DP:
        if (!isRoot) remove(entry, AT_REMOVEDIR);
        break;
      case FTS_DNR:
      case FTS_ERR:
      case FTS_NS:
        leave(entry, entry.fts_errno);
        break;
      default:
        if (isMount(entry, device_)) {
          leaveMount(entry);
        } else {
          remove(entry, 0);
        }
    }
  }

  void remove(FTSENT& entry, int flags) {
    // What holds something that stays cannot go, and needs no word of its own.
    if (entry.fts_number != 0) {
      entry.fts_parent->fts_number = 1;
    } else if (!unlinkBelow(entry.fts_path + root_.size() + 1, flags) && errno != ENOENT) {
      leave(entry, errno);
    }
  }

  /// Removes what has that path below the root. False and errno when that fails.
  bool unlinkBelow(std::string_view path, int flags) {
    const std::size_t slash = path.rfind('/');
    const std::string_view parent = slash == path.npos ? "" : path.substr(0, slash);
    const std::string name(path.substr(slash == path.npos ? 0 : slash + 1));
    if (!folder_ || parent != folderPath_) {
      folder_ = openBelow(parent);
      folderPath_ = parent;
    }
    return folder_ && ::unlinkat(folder_.get(), name.c_str(), flags) == 0;
  }

  /// A folder by its path below the root, through no link; none and errno when there is none.
  host_linux::Descriptor openBelow(std::string_view path) const {
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    host_linux::Descriptor folder(::open(root_.c_str(), kFlags));
    while (folder && !path.empty()) {
      const std::size_t end = std::min(path.find('/'), path.size());
      const std::string name(path.substr(0, end));
      folder = host_linux::Descriptor(::openat(folder.get(), name.c_str(), kFlags));
      path.remove_prefix(std::min(end + 1, path.size()));
    }
    return folder;
  }

  void leave(FTSENT& entry, int error) {
    entry.fts_number = 1;
    entry.fts_parent->fts_number = 1;
    if (failures_++ == 0) {
      firstFailure_ =
          std::string("cannot remove ") + entry.fts_path + ": " + host_linux::errorText(error);
    }
  }

  static void leaveMount(FTSENT& entry) {
    entry.fts_number = 1;
    entry.fts_parent->fts_number = 1;
    Log_Level(3, "%s is left alone: it is a mount\n", entry.fts_path);
  }

  std::string root_;
  host_linux::Descriptor folder_;  // the one that was used last
  std::string folderPath_;         // its path below the root
  dev_t device_ = 0;
  int failures_ = 0;
  std::string firstFailure_;
};

}  // namespace

void EndAutoConf() {
  if (::unlink(kAutoConfMarker) != 0 && errno != ENOENT && errno != ENOTDIR) {
    fail(kAutoConfMarker, host_linux::errorText(errno));
  }
}

void CleanupBootState() {
  struct stat status {};
  if (::lstat(kBootState, &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return;
    fail(std::string("what is below ") + kBootState, host_linux::errorText(errno));
  }
  // A symbolic link here could lead to any place of the host.
  if (!S_ISDIR(status.st_mode)) {
    fail(std::string("what is below ") + kBootState, host_linux::errorText(ENOTDIR));
  }
  Cleaning().run(kBootState);
}

}  // namespace HypConfigStore
