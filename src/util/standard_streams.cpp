#include "util/standard_streams.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "platform/log.h"
#include "util/system_error.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

constexpr const char* kNullDevice = "/dev/null";

bool duplicateOnto(const UniqueFd& file, int stream) {
  return retryInterrupted([&] { return ::dup2(file.get(), stream); }) == stream;
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

  // O_NONBLOCK: opening a FIFO without a reader would wait. Its later writers shall wait again.
  constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY;
  const UniqueFd log(::open(path, kFlags | O_NONBLOCK, 0644));
  if (!log) {
    Warning("Failed opening log file %s", path);
    return;
  }
  ::fcntl(log.get(), F_SETFL, O_APPEND);
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

void closeOtherDescriptors() {
  constexpr unsigned kFirst = STDERR_FILENO + 1;
#ifdef SYS_close_range
  if (::syscall(SYS_close_range, kFirst, ~0U, 0) == 0) return;
#endif
  const long limit = ::sysconf(_SC_OPEN_MAX);
  for (int fd = kFirst; fd < limit; ++fd) ::close(fd);
}

}  // namespace bootforge
