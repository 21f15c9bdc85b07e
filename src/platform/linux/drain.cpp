#include "platform/linux/drain.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "platform/linux/close_from.h"

namespace host_linux {
namespace {

/// What a list of processes shows: this one is no longer what it was forked from.
void takeName() {
  constexpr const char* kName = "stderr-drain";
  ::prctl(PR_SET_NAME, kName);
  if (char* const shown = program_invocation_name) {
    const std::size_t room = std::strlen(shown);
    std::memset(shown, 0, room);
    std::memcpy(shown, kName, std::min(room, std::strlen(kName)));
  }
}

/// Gives back everything that the process was forked with but for the pipe, which becomes its
/// standard input. Before the process that waits for us goes on: whoever is on the other side of
/// its sockets must not find them open here.
void keepNothingBut(int pipe) {
  ::dup2(pipe, STDIN_FILENO);
  const int null = ::open("/dev/null", O_WRONLY);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    if (null < 0 || ::dup2(null, stream) < 0) ::close(stream);
  }
  closeFrom(STDERR_FILENO + 1);
  takeName();
}

[[noreturn]] void drainStandardInput() {
  // Nothing but the end of the pipe ends it: not a terminal, a session or a shutdown, which may
  // still have the writer say something.
  ::setsid();
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_IGN);
  if (::chdir("/") != 0) {
    // Then it keeps the folder that it is in; nothing depends on that.
  }
  char thrownAway[4096];
  while (uninterrupted([&] { return ::read(STDIN_FILENO, thrownAway, sizeof thrownAway); }) > 0) {
  }
  ::_exit(0);
}

}  // namespace

void drainInBackground(Descriptor pipe) {
  // Async-signal-safe only, until the end: other threads may hold any lock.
  const pid_t child = ::fork();
  if (child == 0) {
    keepNothingBut(pipe.get());
    const pid_t drain = ::fork();
    if (drain == 0) drainStandardInput();
    ::_exit(drain > 0 ? 0 : 1);
  }
  int status = 1;
  if (child > 0) uninterrupted([&] { return ::waitpid(child, &status, 0); });
  // Without a process for it, the writer is at least not killed while we live.
  if (status != 0) [[maybe_unused]]
    const int kept = pipe.release();
}

}  // namespace host_linux
