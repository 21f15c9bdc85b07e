#include "tools/launch/relay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/close_from.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/outlet.h"
#include "platform/linux/text.h"

namespace {

using host_linux::Delivery;

/// A longer line is sent in parts: daemons are not bound to take more in one message.
constexpr std::size_t kMostOfALine = 960;
/// How long the rest of a line is waited for.
constexpr int kPauseInALine = 1000;  // milliseconds
/// How long the last words wait for room: nobody waits for the end of this process.
constexpr std::chrono::milliseconds kLastPatience(1000);
/// How long a daemon that did not take a line is left alone: twice as long after each attempt.
constexpr std::chrono::duration<int, std::milli> kFirstPause(10);
constexpr std::chrono::duration<int, std::milli> kLongestPause(1000);

/// What a list of processes shows.
void takeName(int wordCount, char** words) {
  constexpr const char* kName = "stderr-relay";
  ::prctl(PR_SET_NAME, kName);
  char* const begin = words[0];
  char* const last = words[wordCount - 1];
  const auto room = static_cast<std::size_t>(last + std::strlen(last) - begin);
  std::memset(begin, 0, room);
  if (room >= std::strlen(kName)) std::memcpy(begin, kName, std::strlen(kName));
}

/// Nothing but the end of the pipe ends this process: a daemon that is told to end may still have
/// something to say.
void becomeIndependent(int pipe) {
  ::setsid();
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_IGN);
  ::dup2(pipe, STDIN_FILENO);
  ::dup2(STDERR_FILENO, STDOUT_FILENO);  // the null device
  host_linux::closeFrom(STDERR_FILENO + 1);
  if (::chdir("/") != 0) {
    // Then it keeps the folder that it is in; nothing depends on that.
  }
  // Whoever writes to the pipe would die with us.
  const host_linux::Descriptor score(::open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
  if (score) host_linux::writeAll(score.get(), "-1000", 5);
}

class Relay {
  /// First, because its type is known only from here on.
  auto outlet() {
    return [this](int priority, std::string_view text, std::chrono::milliseconds patience) {
      const Delivery delivery =
          socket_.send(host_linux::syslogMessage(priority, name_, text), patience);
      // Here nobody else has the message, so one without a daemon is lost like any other.
      return delivery == Delivery::kNobody ? Delivery::kNoRoom : delivery;
    };
  }

 public:
  explicit Relay(std::string name) : name_(std::move(name)) {}

  void run() {
    char buffer[4096];
    for (;;) {
      pollfd input{STDIN_FILENO, POLLIN, 0};
      if (const int pause = patience(); pause >= 0 && ::poll(&input, 1, pause) == 0) {
        nothingCame();
        continue;
      }
      const ssize_t count =
          host_linux::uninterrupted([&] { return ::read(STDIN_FILENO, buffer, sizeof buffer); });
      if (count <= 0) break;
      take({buffer, static_cast<std::size_t>(count)});
    }
    sendPatience_ = kLastPatience;
    loss_.patient = true;
    deliverHeld();
    endLine();
    deliverHeld();
    host_linux::tellLoss(loss_, sendPatience_, outlet());
  }

 private:
  using Clock = std::chrono::steady_clock;

  /// How long more input is waited for before something is done without it; -1 without end.
  int patience() const {
    if (!held_.empty()) return pause_.count();
    return line_.empty() && loss_.messages == 0 ? -1 : kPauseInALine;
  }

  void nothingCame() {
    if (!held_.empty()) {
      if (isHeardAgain()) deliverHeld();
      return;
    }
    endLine();
    host_linux::tellLoss(loss_, sendPatience_, outlet());
  }

  void take(std::string_view text) {
    for (const char c : text) {
      // Cut between characters of UTF-8, of which none has more than four bytes.
      const bool continues = (static_cast<unsigned char>(c) & 0xc0U) == 0x80;
      if (c == '\n' || line_.size() >= kMostOfALine + (continues ? 3 : 0)) endLine();
      if (c != '\n') line_ += c;
    }
  }

  void endLine() {
    if (line_.empty()) return;
    std::string text = host_linux::withoutControls(line_);
    line_.clear();
    // While nobody listens, a flood must not ask for the daemon with every line, and be slowed down
    // by that. The last line is held back: last words count most.
    if (!isHeardAgain()) {
      if (!held_.empty()) ++loss_.messages;
      held_ = std::move(text);
      return;
    }
    deliverHeld();
    deliver(text);
  }

  /// Whether nothing is lost, or the daemon takes the word of what was.
  bool isHeardAgain() {
    if (loss_.messages == 0) return true;
    if (Clock::now() < nextAttempt_) return false;
    if (host_linux::tellLoss(loss_, sendPatience_, outlet()) == Delivery::kDone) {
      pause_ = kFirstPause;
      return true;
    }
    nextAttempt_ = Clock::now() + pause_;
    pause_ = std::min(2 * pause_, kLongestPause);
    return false;
  }

  void deliverHeld() {
    if (!held_.empty()) deliver(std::exchange(held_, {}));
  }

  void deliver(const std::string& text) {
    host_linux::deliver(loss_, sendPatience_, LOG_NOTICE, text, outlet());
    nextAttempt_ = Clock::now() + pause_;
  }

  const std::string name_;
  std::string line_;  // what there is of it
  std::string held_;  // a whole one, not tried yet
  host_linux::Loss loss_;
  std::chrono::milliseconds sendPatience_ = host_linux::kSyslogPatience;
  host_linux::SyslogSocket socket_;
  Clock::time_point nextAttempt_;  // while something is lost
  std::chrono::duration<int, std::milli> pause_ = kFirstPause;
};

}  // namespace

void relayStandardError(const char* name, int wordCount, char** words) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return;
  const host_linux::Descriptor reader(ends[0]);
  const host_linux::Descriptor writer(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) {
    Relay relay{std::string(name)};
    becomeIndependent(reader.get());
    takeName(wordCount, words);
    // All of this before we are waited for: whoever comes later finds nothing of the script here.
    const pid_t second = ::fork();
    if (second == 0) relay.run();
    ::_exit(second >= 0 ? 0 : 1);
  }
  int status = 1;
  if (child > 0) host_linux::uninterrupted([&] { return ::waitpid(child, &status, 0); });
  if (status == 0) ::dup2(writer.get(), STDERR_FILENO);
}
