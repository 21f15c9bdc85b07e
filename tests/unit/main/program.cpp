#include "tests/unit/main/program.h"

#include <fcntl.h>
#include <getopt.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <thread>

#include "main/boot.h"
#include "main/run_options.h"
#include "util/system_error.h"
#include "util/unique_fd.h"

// A worker restarts the executor while other threads run; ThreadSanitizer would end its process.
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

namespace bootforge::test {
namespace {

constexpr unsigned kPatienceSeconds = 60;

// The root outside the tests' root: coverage counters of children are written there.
const int outside = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);

std::string contentOf(const UniqueFd& file) {
  std::string text;
  char buffer[4096];
  for (ssize_t count;
       (count = ::pread(file.get(), buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0;) {
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

[[noreturn]] void runChild(const std::function<int()>& body, const UniqueFd& out,
                           const UniqueFd& err) {
  ::alarm(kPatienceSeconds);
  const UniqueFd input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  ::dup2(input.get(), STDIN_FILENO);
  ::dup2(out.get(), STDOUT_FILENO);
  ::dup2(err.get(), STDERR_FILENO);
  // Whatever earlier tests of this process did, the child has seen no command line yet.
  RunOptions::instance() = RunOptions();
  optind = 0;
  const int status = body();
  std::fflush(nullptr);
  doubles::resetFaults();
  if (::fchdir(outside) != 0 || ::chroot(".") != 0) std::perror("leaving the root");
  std::exit(status);
}

}  // namespace

Outcome inChild(const std::function<int()>& body) {
  const UniqueFd out(::memfd_create("out", MFD_CLOEXEC));
  const UniqueFd err(::memfd_create("err", MFD_CLOEXEC));
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) runChild(body, out, err);
  EXPECT_GT(child, 0);
  int status = 0;
  // A test may have a handler for the signal that makes daemons read their settings anew.
  EXPECT_EQ(retryInterrupted([&] { return ::waitpid(child, &status, 0); }), child);
  Outcome outcome;
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  outcome.out = contentOf(out);
  outcome.err = contentOf(err);
  return outcome;
}

std::vector<doubles::Record> logSetUp() {
  return {
      doubles::logSetup("Log_SetProductInfo double 1.0 build-1 test"),
      doubles::logSetup("Log_InitWithSyslogInt bootforge {log.syslogID=bootforge, "
                        "log.syslogLevel=info} 0"),
      doubles::logSetup("Log_NewStdioOutput bootforge {log.stdoutLevel=info, "
                        "log.useTimeStamps.stdio=true, log.useMilliseconds.stdio=true} 0"),
      doubles::logSetup("Log_AddOutput"),
      doubles::logSetup("Log_SetStderrLevel 0 -1"),
  };
}

ProgramTest::ProgramTest() {
  doubles::reset();
  doubles::resetFaults();
  resetHostCalls();
  // Orphans come to us and can be waited for.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

ProgramTest::~ProgramTest() {
  waitForProcesses();
  doubles::resetFaults();
  resetHostCalls();
}

int runInThisProcess(std::vector<std::string> words) {
  words.insert(words.begin(), "bootforge");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return runProgram(static_cast<int>(words.size()), arguments.data(), environ);
}

Outcome ProgramTest::bootforge(const std::vector<std::string>& words) {
  Outcome outcome = inChild([&words] {
    std::vector<char*> variables;
    for (std::string& variable : environment) variables.push_back(variable.data());
    variables.push_back(nullptr);
    environ = variables.data();
    return runInThisProcess(words);
  });
  waitForProcesses();
  return outcome;
}

void ProgramTest::waitForProcesses() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (;;) {
    const pid_t ended = ::waitpid(-1, nullptr, WNOHANG);
    if (ended < 0) return;
    if (ended > 0) continue;
    if (std::chrono::steady_clock::now() > deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ADD_FAILURE() << "a process was left behind";
  // Those that have told the host something are known; the supervisor ends all others.
  std::set<pid_t> known;
  for (const doubles::Record& record : doubles::records()) known.insert(record.process);
  known.erase(::getpid());
  for (const pid_t process : known) {
    if (::waitpid(process, nullptr, WNOHANG) != 0) continue;
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
  }
}

std::vector<doubles::Record> ProgramTest::events() {
  using doubles::Kind;
  std::vector<doubles::Record> result =
      doubles::records({Kind::kLog, Kind::kSyslog, Kind::kKernel, Kind::kAlert, Kind::kProgress,
                        Kind::kConfigStore, Kind::kCli});
  std::erase(result, doubles::logLine(5, "Executor Reset - polling for commands\n"));
  return result;
}

std::string description(const std::string& requires_, const std::string& provides,
                        const std::string& start) {
  return R"({"metadata": {"version": 1, "requires": )" + requires_ + R"(, "provides": )" +
         provides + R"(}, "operations": {"start": )" + start + "}}";
}

std::string runOnceDescription(const std::string& version, const std::string& start) {
  return R"({"metadata": {"version": 4, "requires": [], "provides": [], "run_once": true, )"
         R"("plugin_version": ")" +
         version + R"("}, "operations": {"start": )" + start + "}}";
}

}  // namespace bootforge::test
