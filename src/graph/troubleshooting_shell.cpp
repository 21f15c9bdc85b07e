#include "graph/troubleshooting_shell.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/log.h"
#include "util/child_process.h"
#include "util/standard_streams.h"
#include "util/system_error.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

/// The terminal on standard input, and the standard streams that are that terminal. When the shell
/// ends, the kernel hangs up a terminal that is no pseudo-terminal (its session leader is gone),
/// for us too: every read then is an end of input, until the terminal is opened again.
class Terminal {
 public:
  Terminal() {
    char name[256];
    struct stat input {};
    if (::ttyname_r(STDIN_FILENO, name, sizeof name) != 0) return;
    if (::fstat(STDIN_FILENO, &input) != 0) return;
    name_ = name;
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      struct stat status {};
      if (::fstat(stream, &status) == 0 && S_ISCHR(status.st_mode) &&
          status.st_rdev == input.st_rdev) {
        streams_.push_back(stream);
      }
    }
  }

  void reopenIfHungUp() const {
    termios settings{};
    if (name_.empty() || ::tcgetattr(STDIN_FILENO, &settings) == 0) return;
    const UniqueFd terminal(::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal) return;
    for (const int stream : streams_) {
      retryInterrupted([&] { return ::dup2(terminal.get(), stream); });
    }
  }

 private:
  std::string name_;
  std::vector<int> streams_;
};

/// Runs in the forked child. Only async-signal-safe calls, and the log, whose lock is held across a
/// fork.
[[noreturn]] void becomeShell() {
  if (::setsid() == -1) {
    Log_Level(2, "unable to create new session: %s\n", systemErrorText(errno).c_str());
    ::_exit(1);
  }
  Log_Detach();
  closeOtherDescriptors();
  // Taken from whichever session has it.
  ::ioctl(STDIN_FILENO, TIOCSCTTY, 1);
  resetSignals();
  char name[] = "/bin/sh";
  char* const arguments[] = {name, nullptr};
  ::execv(name, arguments);
  Log_Level(2, "unable to exec shell: %s\n", systemErrorText(errno).c_str());
  ::_exit(1);
}

}  // namespace

void runTroubleshootingShell() {
  const Terminal terminal;
  const pid_t child = ::fork();
  if (child == 0) becomeShell();
  if (child == -1) {
    Log_Level(2, "failed to fork - unable to launch troubleshooting shell: %s\n",
              systemErrorText(errno).c_str());
    return;
  }
  retryInterrupted([child] { return ::waitpid(child, nullptr, 0); });
  terminal.reopenIfHungUp();
}

}  // namespace bootforge
