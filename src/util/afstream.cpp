#include "util/afstream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "util/regular_file.h"
#include "util/system_error.h"
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

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Opens a file or a folder for sync().
UniqueFd openToSync(const std::string& path) {
  // Neither a FIFO that somebody put there nor a terminal may hold us up.
  return UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

/// Brings a file or a folder to the disk.
bool sync(const UniqueFd& file) {
  return file && retryInterrupted([&] { return ::fsync(file.get()); }) == 0;
}

}  // namespace

afstream::~afstream() { discard(); }

void afstream::discard() {
  if (temporaryPath_.empty()) return;
  if (is_open()) rdbuf()->close();
  ::unlink(temporaryPath_.c_str());
  temporaryPath_.clear();
  destinationPath_.clear();
}

void afstream::open(const char* destination, std::ios_base::openmode mode) {
  discard();
  const auto path = makePattern(destination);
  const int file = ::mkostemp(path.get(), O_CLOEXEC);
  int error = errno;
  if (file < 0) {
    throw systemFailure(
        std::string("unable to create temporary file to write '") + destination + "': ", error);
  }
  // A file buffer cannot take over a descriptor, so it opens the file once more, by its name.
  ::close(file);
  temporaryPath_ = path.get();
  destinationPath_ = destination;
  errno = 0;
  std::ofstream::open(temporaryPath_, mode | std::ios_base::out);
  error = errno;
  if (!good()) throw systemFailure("failed to create temp file: ", error);
}

void afstream::commit() {
  if (temporaryPath_.empty() || destinationPath_.empty()) {
    throw FileError("commit invoked on an unknown destination", EINVAL);
  }
  flush();
  if (rdbuf()->close() == nullptr) setstate(failbit);
  const UniqueFd file = openToSync(temporaryPath_);
  if (!sync(file)) setstate(failbit);

  struct stat old {};
  errno = 0;
  const int statError = ::stat(destinationPath_.c_str(), &old) == 0 ? 0 : errno;
  replaceDestination();
  // The old permission bits are unknown when the old file could not be looked at.
  int error = statError == ENOENT ? 0 : statError;
  if (statError == 0 && ::chmod(destinationPath_.c_str(), old.st_mode & 07777) != 0) error = errno;
  // The file once more: on a FAT volume, what was moved is an empty file until then.
  if (!sync(file)) setstate(failbit);
  if (!sync(openToSync(folderOf(destinationPath_)))) setstate(failbit);
  if (error != 0) {
    throw systemFailure("failed to restore file permissions, file permissions may be incorrect: ",
                        error);
  }
}

void afstream::replaceDestination() {
  if (::rename(temporaryPath_.c_str(), destinationPath_.c_str()) == 0) return;
  const int error = errno;
  throw systemFailure("unable to rename '" + temporaryPath_ + "' to '" + destinationPath_ + "': ",
                      error);
}

void copyFileInto(const char* source, afstream& target) {
  constexpr const char* kFailure = "failed to write to temp file: ";
  const UniqueFd file = openRegularFile(source);
  int error = errno;
  if (!file) throw systemFailure(kFailure, error);
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
