#include "util/shell.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "util/system_error.h"

namespace bootforge {
namespace {

constexpr int kNoShell = 127 << 8;  // as a shell exits that cannot find its command

/// What posix_spawn(3) is to do in the child.
class SpawnSettings {
 public:
  SpawnSettings() {
    sigset_t all;
    const sigset_t none{};
    std::memset(&all, 0xff, sizeof all);  // sigfillset(3) leaves out those of the C library
    note(::posix_spawn_file_actions_init(&actions_));
    note(::posix_spawnattr_init(&attributes_));
    note(::posix_spawnattr_setsigdefault(&attributes_, &all));
    note(::posix_spawnattr_setsigmask(&attributes_, &none));
    note(::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
  }
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  void place(const UniqueFd& file, int stream) {
    note(::posix_spawn_file_actions_adddup2(&actions_, file.get(), stream));
  }

  /// Returns 0 and the process, or an error number. It gets no descriptors but the streams, whoever
  /// started us with more.
  int spawnShell(const std::string& commandLine, pid_t* child) {
    note(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    if (error_ != 0) return error_;
    char name[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {name, option, const_cast<char*>(commandLine.c_str()), nullptr};
    return ::posix_spawn(child, "/bin/sh", &actions_, &attributes_, arguments, environ);
  }

 private:
  void note(int error) {
    if (error_ == 0) error_ = error;
  }

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
  int error_ = 0;  // the first one
};

/// The status of a child that has ended, or -1 and errno.
int statusOf(pid_t child) {
  int status = 0;
  return retryInterrupted([&] { return ::waitpid(child, &status, 0); }) == child ? status : -1;
}

}  // namespace

int runShell(const std::string& commandLine) {
  pid_t shell = -1;
  const int error = SpawnSettings().spawnShell(commandLine, &shell);
  if (error == 0) return statusOf(shell);
  errno = error;
  return error == EAGAIN || error == ENOMEM ? -1 : kNoShell;
}

ShellOutput::ShellOutput(const std::string& commandLine) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    error_ = errno;
    return;
  }
  UniqueFd reader(ends[0]);
  const UniqueFd writer(ends[1]);
  SpawnSettings settings;
  settings.place(writer, STDOUT_FILENO);
  error_ = settings.spawnShell(commandLine, &shell_);
  if (error_ == 0) pipe_ = std::move(reader);
}

ShellOutput::~ShellOutput() {
  if (!pipe_) return;
  pipe_.reset();
  statusOf(shell_);
}

}  // namespace bootforge
