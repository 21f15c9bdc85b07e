#include "tests/unit/graph/terminal_calls.h"

#include <fcntl.h>
#include <linux/vt.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace {

constexpr tcflag_t kLines = ICANON | ECHO;

/// Whether it is /dev/console, for reading and writing.
bool isConsole(int fd) {
  struct stat ours {};
  struct stat console {};
  return ::fstat(fd, &ours) == 0 && ::stat("/dev/console", &console) == 0 &&
         ours.st_ino == console.st_ino && ours.st_dev == console.st_dev &&
         (::fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDWR;
}

}  // namespace

namespace bootforge::test {

TerminalCalls& terminalCalls() {
  static TerminalCalls calls;
  return calls;
}

}  // namespace bootforge::test

using bootforge::test::terminalCalls;

// The names are the linker's: with --wrap=X, calls of X come here and __real_X is the true one.
extern "C" {

int __real_ioctl(int, unsigned long, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request != VT_ACTIVATE && request != VT_WAITACTIVE) {
    return __real_ioctl(fd, request, argument);
  }
  const std::string name = request == VT_ACTIVATE ? "activate " : "wait ";
  const std::string place = isConsole(fd) ? "" : " elsewhere";
  terminalCalls().requests.push_back(
      name + std::to_string(static_cast<int>(reinterpret_cast<long>(argument))) + place);
  if (request == VT_WAITACTIVE || terminalCalls().activates) return 0;
  errno = ENXIO;
  return -1;
}

int __wrap_tcgetattr(int fd, termios* settings) {
  if (fd != STDIN_FILENO || !terminalCalls().isTerminal) {
    errno = ENOTTY;
    return -1;
  }
  *settings = {};
  settings->c_lflag = kLines | ISIG;
  return 0;
}

int __wrap_tcsetattr(int fd, int actions, const termios* settings) {
  const tcflag_t mode = settings->c_lflag & kLines;
  std::string change = mode == kLines ? "lines" : mode == 0 ? "keys" : "half";
  if (fd != STDIN_FILENO || actions != TCSANOW || (settings->c_lflag & ISIG) == 0) change += "?";
  terminalCalls().changes.push_back(change);
  if (static_cast<int>(terminalCalls().changes.size()) != terminalCalls().failingChange) return 0;
  errno = EIO;
  return -1;
}

}  // extern "C"
