#include "util/standard_streams.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string_view>

#include "platform/log.h"
#include "util/system_error.h"
#include "util/trust.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

constexpr const char* kNullDevice = "/dev/null";

bool duplicateOnto(const UniqueFd& file, int stream) {
  return retryInterrupted([&] { return ::dup2(file.get(), stream); }) == stream;
}

/// Opens a file to append to. A link in its place, symbolic or hard, is followed only where nobody
/// but us can have put it there: it might lead to any other file.
UniqueFd openToAppend(const char* path) {
  // O_NONBLOCK: opening a FIFO without a reader would wait. Its later writers shall wait again.
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  UniqueFd file(::open(path, kFlags | O_NOFOLLOW, 0644));
  if (!file && errno == ELOOP && isTrustedLink(path)) file.reset(::open(path, kFlags, 0644));
  if (file && !isTrustedFile(file, path)) file.reset();
  if (file) ::fcntl(file.get(), F_SETFL, O_APPEND);
  return file;
}

/// Closes the descriptors from `first` on that /proc lists; false when it cannot be read.
bool closeListedDescriptors(int first) {
  const UniqueFd folder(::open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return false;
  // The kernel's own call: readdir(3) allocates.
  alignas(dirent64) char entries[4096];
  for (;;) {
    const long size = ::syscall(SYS_getdents64, folder.get(), entries, sizeof entries);
    if (size <= 0) return size == 0;
    for (long at = 0; at < size;) {
      const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
      const std::string_view name(entry->d_name);
      int fd = -1;
      std::from_chars(name.data(), name.data() + name.size(), fd);
      if (fd >= first && fd != folder.get()) ::close(fd);
      at += entry->d_reclen;
    }
  }
}

}  // namespace

void redirectStandardStreams(const char* path) {
  UniqueFd null(::open(kNullDevice, O_RDWR | O_CLOEXEC));
  if (!null) {
    Warning("Failed opening /dev/null");
  } else if (!duplicateOnto(null, STDIN_FILENO)) {
    Warning("Failed redirecting stdin to /dev/null");
  }
  null.reset();

  const UniqueFd log = openToAppend(path);
  if (!log) {
    Warning("Failed opening log file %s", path);
    return;
  }
  if (!duplicateOnto(log, STDOUT_FILENO)) Warning("Failed redirecting stdout to %s", path);
  if (!duplicateOnto(log, STDERR_FILENO)) Warning("Failed redirecting stderr to %s", path);
}

void openMissingStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) != -1 || errno != EBADF) continue;
    // The lowest free descriptor is the missing stream, since those below it are open.
    const int null = ::open(kNullDevice, O_RDWR);
    if (null < 0) return;
  }
}

void closeOtherDescriptors(int first) {
#ifdef SYS_close_range
  if (::syscall(SYS_close_range, first, ~0U, 0) == 0) return;
#endif
  if (closeListedDescriptors(first)) return;
  const long limit = ::sysconf(_SC_OPEN_MAX);
  for (int fd = first; fd < limit; ++fd) ::close(fd);
}

}  // namespace bootforge
