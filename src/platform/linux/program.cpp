#include "platform/linux/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <csignal>

#include "platform/linux/descriptor.h"

namespace host_linux {
namespace {

constexpr std::size_t kKept = 65536;

/// What posix_spawn(3) is to do in the child.
class SpawnSettings {
 public:
  SpawnSettings(int standardInput, int standardError) {
    ::posix_spawn_file_actions_init(&actions_);
    check(::posix_spawn_file_actions_adddup2(&actions_, standardInput, STDIN_FILENO));
    check(::posix_spawn_file_actions_adddup2(&actions_, standardError, STDERR_FILENO));
    check(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    ::posix_spawnattr_init(&attributes_);
    check(::posix_spawnattr_setsigdefault(&attributes_, &all));
    check(::posix_spawnattr_setsigmask(&attributes_, &none));
    check(::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
  }
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  /// An error number, or 0 and the process.
  int spawn(const std::vector<std::string>& words, pid_t* pid) const {
    if (error_ != 0) return error_;
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    return ::posix_spawn(pid, arguments[0], &actions_, &attributes_, arguments.data(), environ);
  }

 private:
  void check(int error) {
    if (error_ == 0) error_ = error;
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  int error_ = 0;  // the first one
};

/// Reads at most `most` bytes of what is in the pipe, which must not be empty. False at its end.
bool readSome(int pipe, std::size_t most, ProgramEnd& end) {
  std::array<char, 16384> buffer;
  ssize_t count =
      uninterrupted([&] { return ::read(pipe, buffer.data(), std::min(most, buffer.size())); });
  if (count <= 0) return false;
  const auto got = static_cast<std::size_t>(count);
  std::size_t kept = std::min(got, kKept - end.standardError.size());
  end.standardError.append(buffer.data(), kept);
  end.dropped += got - kept;
  return true;
}

/// Reads what is in the pipe now. No more: a process left behind may go on writing for ever.
void readRest(int pipe, ProgramEnd& end) {
  int available = 0;
  if (::ioctl(pipe, FIONREAD, &available) != 0) return;
  for (auto left = static_cast<std::size_t>(available); left > 0;) {
    std::size_t before = end.standardError.size() + end.dropped;
    if (!readSome(pipe, left, end)) return;
    left -= end.standardError.size() + end.dropped - before;
  }
}

/// Keeps the pipe from filling up until the program has ended, and collects its status.
void await(pid_t pid, Descriptor pipe, ProgramEnd& end) {
  Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  // Old kernels have no such descriptor; there the program is asked for in growing intervals.
  int patience = process ? -1 : 1;
  pollfd watched[] = {{pipe.get(), POLLIN, 0}, {process.get(), POLLIN, 0}};
  pid_t collected = 0;
  while (collected == 0) {
    int ready = ::poll(watched, 2, patience);
    if (ready > 0 && watched[0].revents && !readSome(pipe.get(), kKept, end)) {
      watched[0].fd = -1;  // nobody has it open any more, which need not be the program's end
    }
    collected = uninterrupted([&] { return ::waitpid(pid, &end.status, WNOHANG); });
    if (!process) patience = ready > 0 ? 1 : std::min(patience * 2, 32);
  }
  if (collected < 0) end.failure = "cannot tell how it ended: " + errorText(errno);
  readRest(pipe.get(), end);
}

}  // namespace

ProgramEnd runProgram(const std::vector<std::string>& words) {
  ProgramEnd end;
  Descriptor null(uninterrupted([] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }));
  if (!null) {
    end.failure = "cannot be started: /dev/null: " + errorText(errno);
    return end;
  }
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    end.failure = "cannot be started: " + errorText(errno);
    return end;
  }
  Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  pid_t pid = 0;
  if (int error = SpawnSettings(null.get(), writer.get()).spawn(words, &pid)) {
    end.failure = "cannot be started: " + errorText(error);
    return end;
  }
  writer.close();
  await(pid, std::move(reader), end);
  return end;
}

}  // namespace host_linux
