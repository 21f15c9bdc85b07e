#include "util/afstream.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ext/stdio_filebuf.h>
#include <memory>
#include <optional>
#include <utility>

#include "util/regular_file.h"
#include "util/system_error.h"
#include "util/trust.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

constexpr const char* kSuffixPattern = ".XXXXXX";

/// A failure whose text ends in that of an errno value.
FileError systemFailure(const std::string& text, int error) {
  return FileError(text + systemErrorText(error), error);
}

std::unique_ptr<char, decltype(&std::free)> makePattern(const char* destination) {
  const std::size_t length = std::strlen(destination) + std::strlen(kSuffixPattern);
  std::unique_ptr<char, decltype(&std::free)> pattern(
      static_cast<char*>(std::calloc(length + 1, 1)), &std::free);
  if (!pattern) throw FileError("insufficient memory to allocate buffer", ENOMEM);
  const int formatted =
      std::snprintf(pattern.get(), length + 1, "%s%s", destination, kSuffixPattern);
  if (formatted < 0 || static_cast<std::size_t>(formatted) != length) {
    throw FileError("unable to allocate mkstemp pattern", EOVERFLOW);
  }
  return pattern;
}

/// What there is to be known of a file before it is replaced.
struct OldFile {
  int error = 0;               // of stat(2); ENOENT when there is none
  std::optional<mode_t> mode;  // the permission bits that the new file is to have
};

OldFile lookAt(const std::string& path) {
  constexpr mode_t kWithoutSetId = 01777;
  struct stat file {};
  struct stat name {};
  OldFile old;
  const bool named = ::lstat(path.c_str(), &name) == 0;
  // What others have put there does not say who may read and write the new file, and where a link
  // of theirs leads is not looked at: that may take for ever.
  if (named && S_ISLNK(name.st_mode) && !isOurs(name)) return old;
  if (::stat(path.c_str(), &file) != 0) {
    old.error = errno;
  } else if (named && isOurs(name) && isOurs(file) && S_ISREG(file.st_mode) &&
             (S_ISLNK(name.st_mode) || isSameFile(name, file))) {
    old.mode = file.st_mode & kWithoutSetId;
  }
  return old;
}

/// Brings a file or a folder to the disk; returns 0 or an errno value. Where a file system has no
/// such thing, there is nothing to be told.
int sync(const UniqueFd& file) {
  if (retryInterrupted([&] { return ::fsync(file.get()); }) == 0 || errno == EINVAL) return 0;
  return errno;
}

int syncFolder(const std::string& path) {
  const UniqueFd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder ? sync(folder) : errno;
}

bool isOnFat(const UniqueFd& file) {
  struct statfs volume {};
  return ::fstatfs(file.get(), &volume) == 0 &&
         (volume.f_type == MSDOS_SUPER_MAGIC || volume.f_type == EXFAT_SUPER_MAGIC);
}

}  // namespace

afstream::~afstream() { discard(); }

void afstream::discard() {
  if (temporaryPath_.empty()) return;
  if (is_open()) rdbuf()->close();
  file_.reset();
  ::unlink(temporaryPath_.c_str());
  temporaryPath_.clear();
  destinationPath_.clear();
  syncError_ = 0;
  mostMode_ = kAnyMode;
}

void afstream::open(const char* destination, std::ios_base::openmode mode) {
  discard();
  const auto path = makePattern(destination);
  file_.reset(::mkostemp(path.get(), O_CLOEXEC));
  if (!file_) {
    const int error = errno;
    throw systemFailure(
        std::string("unable to create temporary file to write '") + destination + "': ", error);
  }
  temporaryPath_ = path.get();
  destinationPath_ = destination;
  openStream(mode | std::ios_base::out);
}

/// Opens the stream on the file itself: its name may be another's by now.
void afstream::openStream(std::ios_base::openmode mode) {
  UniqueFd file(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
  int error = errno;
  if (file) {
    errno = EINVAL;  // a mode that does not make sense is refused without a reason
    __gnu_cxx::stdio_filebuf<char> buffer(file.get(), mode);
    error = errno;
    if (buffer.is_open()) {
      file.release();
      static_cast<std::filebuf&>(*rdbuf()) = std::move(buffer);
      clear();
      return;
    }
  }
  setstate(failbit);
  throw systemFailure("failed to create temp file: ", error);
}

void afstream::commit() {
  if (temporaryPath_.empty()) throw FileError("commit invoked on an unknown destination", EINVAL);
  flush();
  syncError_ = sync(file_);
  if (rdbuf()->close() == nullptr) setstate(failbit);

  const OldFile old = lookAt(destinationPath_);
  if (syncError_ != 0 && old.error != ENOENT) {
    throw systemFailure("unable to sync the new '" + destinationPath_ + "': ", syncError_);
  }
  // A FAT volume frees the old file's clusters when nobody holds it any more. That may reach the
  // disk before the name leads to the new file, and a power cut between the two would leave
  // neither.
  const UniqueFd held(
      isOnFat(file_) ? ::open(destinationPath_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC) : -1);
  replaceDestination();
  // The permission bits are unknown when the old file could not be looked at.
  int error = old.error == ENOENT ? 0 : old.error;
  if (old.mode && ::fchmod(file_.get(), *old.mode & mostMode_) != 0) error = errno;
  syncMoved();
  if (error != 0) {
    throw systemFailure("failed to restore file permissions, file permissions may be incorrect: ",
                        error);
  }
}

void afstream::syncMoved() {
  // On a FAT volume, what was moved is an empty file until it is synced once more.
  if (syncError_ == 0 && isOnFat(file_)) syncError_ = sync(file_);
  if (syncError_ == 0) syncError_ = syncFolder(folderOf(destinationPath_));
  if (syncError_ != 0) setstate(failbit);
}

void afstream::replaceDestination() {
  if (::rename(temporaryPath_.c_str(), destinationPath_.c_str()) == 0) return;
  const int error = errno;
  throw systemFailure("unable to rename '" + temporaryPath_ + "' to '" + destinationPath_ + "': ",
                      error);
}

void writeAndCommit(afstream& file, const std::string& content) {
  const std::string destination = "'" + file.destination() + "'";
  errno = 0;
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.flush();
  int error = errno;
  if (!file) throw systemFailure("unable to write " + destination + ": ", error);
  file.commit();
  error = file.syncError();
  if (error != 0) {
    throw systemFailure(destination + " is replaced, but may not survive a power cut: ", error);
  }
}

void copyFileInto(const char* source, afstream& target) {
  constexpr const char* kFailure = "failed to write to temp file: ";
  const UniqueFd file = openRegularFile(source);
  int error = errno;
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) throw systemFailure(kFailure, error);
  if (!isTrustedFolderOf(source) && !(isOurs(status) && isTrustedFile(file, source))) {
    throw systemFailure(kFailure, EPERM);
  }
  target.limitMode(status.st_mode);
  std::array<char, 16384> chunk;
  ssize_t count = 0;
  do {
    count = retryInterrupted([&] { return ::read(file.get(), chunk.data(), chunk.size()); });
    error = errno;
    if (count < 0) target.setstate(std::ios_base::failbit);
    if (count <= 0) break;
    errno = 0;
    target.write(chunk.data(), count);
    error = errno;
  } while (target.good());
  if (!target.good()) throw systemFailure(kFailure, error);
}

}  // namespace bootforge
