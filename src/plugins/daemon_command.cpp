#include "plugins/daemon_command.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <sstream>
#include <vector>

#include "main/run_options.h"
#include "platform/host_kernel.h"
#include "platform/log.h"
#include "util/child_process.h"
#include "util/exception.h"
#include "util/system_error.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

constexpr int kPollMilliseconds = 10;
constexpr std::uint32_t kPollsWithoutWaiting = 1000;

/// What a child is started with; descriptors that could not be had are stood in for.
class Streams {
 public:
  Streams() {
    if (root_.get() <= 0) Panic("VERIFY %s:%d\n", "DaemonPlugin", 86);
    if (!null_) Log_Level(3, "opening /dev/null failed\n");
    // Opening must not wait for a reader, writing may.
    if (log_) ::fcntl(log_.get(), F_SETFL, 0);
  }

  int root() const { return root_.get(); }
  int null() const { return null_ ? null_.get() : root(); }
  int log() const { return log_ ? log_.get() : null(); }

 private:
  UniqueFd root_{::open("/", O_RDONLY | O_CLOEXEC)};
  UniqueFd null_{::open("/dev/null", O_RDWR | O_CLOEXEC)};
  UniqueFd log_{::open("/dev/log", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
};

/// Starts the command; -1 and errno when that fails.
pid_t spawn(const std::string& commandLine) {
  std::vector<std::string> words;
  std::istringstream text(commandLine);
  for (std::string word; text >> word;) words.push_back(std::move(word));
  if (words.empty()) words.emplace_back();
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  const Streams streams;
  const int descriptors[] = {streams.null(), streams.null(), streams.log()};
  pid_t child = -1;
  const HvkForkExecParameters parameters{3, ::getuid(), ::getgid(), 0, &child};
  int error = 0;
  const int result =
      HvkSyscall_ForkExec(arguments[0], arguments.data(), RunOptions::instance().environment,
                          streams.root(), descriptors, &parameters, &error);
  if (error != 0) errno = -error;
  return result == 0 ? child : -1;
}

std::uint32_t pollBudget(const RunOptions& options) {
  if (!options.daemonWait) return kPollsWithoutWaiting;
  return (options.daemonWaitTimeout * 1000 + 9) / kPollMilliseconds;
}

/// How a child that has ended is told of; empty for success.
std::string judge(const std::string& commandLine, int status) {
  const std::string subject = "Execution of command: " + commandLine;
  if (WIFEXITED(status)) {
    const int code = WEXITSTATUS(status);
    return code == 0 ? "" : subject + " failed with status: " + std::to_string(code);
  }
  if (WIFSIGNALED(status)) {
    return subject + " failed with signal: " + std::to_string(WTERMSIG(status));
  }
  return subject + " failed <unknown_error>";
}

/// Waits within the budget; returns the failure, empty for success.
std::string await(const std::string& commandLine, pid_t child) {
  const RunOptions& options = RunOptions::instance();
  // A budget of nothing wraps: the wait then has no limit that anybody sees.
  std::uint32_t budget = pollBudget(options);
  ChildEnd end(child);
  for (;;) {
    int status = -1;
    const pid_t ended = ::waitpid(child, &status, WNOHANG);
    if (ended == child) return judge(commandLine, status);
    if (ended == -1 && errno == EINTR) continue;
    if (ended != 0) return "Execution of command: " + commandLine + " failed <unknown_error>";
    end.sleep(kPollMilliseconds);
    if (--budget != 0) continue;
    return options.daemonWait ? "Execution of command: '" + commandLine + "' timed out." : "";
  }
}

}  // namespace

void runDaemonCommand(const std::string& commandLine) {
  const pid_t child = spawn(commandLine);
  const std::string failure =
      child == -1 ? "failed to ForkExec '" + commandLine + "' : " + systemErrorText(errno)
                  : await(commandLine, child);
  if (!failure.empty()) throw Exception(failure);
}

}  // namespace bootforge
