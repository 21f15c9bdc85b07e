#include "platform/linux/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>

#include "platform/linux/descriptor.h"
#include "platform/linux/drain.h"

namespace host_linux {
namespace {

constexpr std::size_t kKept = 65536;

/// What posix_spawn(3) is to do in the child.
class SpawnSettings {
 public:
  SpawnSettings(int standardInput, int standardError, bool ownGroup) {
    ::posix_spawn_file_actions_init(&actions_);
    check(::posix_spawn_file_actions_adddup2(&actions_, standardInput, STDIN_FILENO));
    check(::posix_spawn_file_actions_adddup2(&actions_, standardError, STDERR_FILENO));
    check(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    sigset_t all;
    const sigset_t none{};
    std::memset(&all, 0xff, sizeof all);  // sigfillset(3) leaves out those of the C library
    ::posix_spawnattr_init(&attributes_);
    check(::posix_spawnattr_setsigdefault(&attributes_, &all));
    check(::posix_spawnattr_setsigmask(&attributes_, &none));
    check(::posix_spawnattr_setpgroup(&attributes_, 0));
    const int group = ownGroup ? POSIX_SPAWN_SETPGROUP : 0;
    check(::posix_spawnattr_setflags(
        &attributes_, static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | group)));
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

/// Reads at most `most` bytes of what is in the pipe, which must not be empty. Returns their
/// number, 0 at its end.
std::size_t readSome(int pipe, std::size_t most, ProgramEnd& end) {
  std::array<char, 16384> buffer;
  ssize_t count =
      uninterrupted([&] { return ::read(pipe, buffer.data(), std::min(most, buffer.size())); });
  if (count <= 0) return 0;
  const auto got = static_cast<std::size_t>(count);
  std::size_t kept = std::min(got, kKept - end.standardError.size());
  end.standardError.append(buffer.data(), kept);
  end.dropped += got - kept;
  return got;
}

/// Reads what is in the pipe now. No more: a process left behind may go on writing for ever.
void readRest(int pipe, ProgramEnd& end) {
  int available = 0;
  if (::ioctl(pipe, FIONREAD, &available) != 0) return;
  for (auto left = static_cast<std::size_t>(available); left > 0;) {
    const std::size_t got = readSome(pipe, left, end);
    if (got == 0) return;
    left -= got;
  }
}

/// The end of a program's time, and what follows it.
class Limit {
 public:
  Limit(pid_t group, std::optional<double> seconds) : group_(group) {
    // Far more than any boot, and less than the clock can hold.
    constexpr double kMost = 1e9;
    if (seconds) {
      next_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(std::min(*seconds, kMost)));
    }
  }

  bool exceeded() const { return sent_ != 0; }

  /// How long poll(2) may wait: in milliseconds, -1 without end.
  int patience(bool ended) const {
    if (next_ == Clock::time_point::max()) return -1;
    // Nothing tells of the end of the last process of a group.
    if (ended) return 10;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
  }

  /// Does what is due. True when nothing is waited for any longer: the program has ended, and after
  /// a signal of ours its whole group, or has withstood everything.
  bool over(bool ended) {
    if (ended && (sent_ != SIGTERM || ::kill(-group_, 0) != 0)) return true;
    if (Clock::now() < next_) return false;
    if (sent_ == SIGKILL) return true;
    sent_ = sent_ == 0 ? SIGTERM : SIGKILL;
    next_ = Clock::now() + kGrace;
    // A program may have left the group that it was given.
    if (::kill(-group_, sent_) != 0 && !ended) ::kill(group_, sent_);
    return ended;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kGrace{2};

  const pid_t group_;
  Clock::time_point next_ = Clock::time_point::max();
  int sent_ = 0;  // the last signal
};

/// Whether somebody still has the other end open.
bool isOpenElsewhere(int pipe) {
  pollfd state{pipe, 0, 0};
  return ::poll(&state, 1, 0) == 0;
}

/// Keeps the pipe from filling up until the program has ended, and collects its status. `writer` is
/// the pipe's other end: open here, it makes the end of a program one event to wake up for, where
/// there were two, first the pipe's end and a moment later that of the process.
void await(pid_t pid, Descriptor pipe, Descriptor writer, Limit limit, ProgramEnd& end) {
  Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  // Old kernels have no such descriptor; there the program is asked for in growing intervals, and
  // when the pipe ends.
  int interval = 1;
  if (!process) writer.close();
  std::array<pollfd, 2> watched{{{pipe.get(), POLLIN, 0}, {process.get(), POLLIN, 0}}};
  bool ended = false;
  while (!limit.over(ended)) {
    const int patience = limit.patience(ended);
    const bool asks = !process && !ended;
    const int wait = asks ? (patience < 0 ? interval : std::min(patience, interval)) : patience;
    const int ready = ::poll(watched.data(), watched.size(), wait);
    if (ready > 0 && watched[0].revents && readSome(pipe.get(), kKept, end) == 0) {
      watched[0].fd = -1;  // nobody has it open any more, which need not be the program's end
    }
    if (!ended) {
      const pid_t collected = uninterrupted([&] { return ::waitpid(pid, &end.status, WNOHANG); });
      if (collected < 0) end.failure = "cannot tell how it ended: " + errorText(errno);
      ended = collected != 0;
    }
    if (ended) watched[1].fd = -1;  // it would be ready for ever
    interval = ready > 0 ? 1 : std::min(interval * 2, 32);
  }
  writer.close();
  end.timedOut = limit.exceeded();
  readRest(pipe.get(), end);
  if (isOpenElsewhere(pipe.get())) drainInBackground(std::move(pipe));
}

}  // namespace

ProgramEnd runProgram(const std::vector<std::string>& words, std::optional<double> limit) {
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
  if (int error = SpawnSettings(null.get(), writer.get(), limit.has_value()).spawn(words, &pid)) {
    end.failure = "cannot be started: " + errorText(error);
    return end;
  }
  await(pid, std::move(reader), std::move(writer), Limit(pid, limit), end);
  return end;
}

}  // namespace host_linux
