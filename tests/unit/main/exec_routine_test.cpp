// Programs that the boot starts and waits for.
#include "main/exec_routine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "main/run_options.h"
#include "tests/unit/main/program.h"
#include "util/standard_streams.h"

namespace bootforge::test {
namespace {

using doubles::failCall;
using doubles::logLine;
using doubles::logSetup;
using doubles::Where;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kScript = "/sbin/script";

class ExecRoutine : public ProgramTest {
 protected:
  static constexpr int kSucceeded = 1;

  static void writeScript(const std::string& text) {
    writeFile(kScript, "#!/bin/sh\n" + text, 0755);
  }

  /// Runs a program by the routine, in a process of its own that `prepare` has worked on.
  static Outcome run(
      const std::string& path = kScript, const std::vector<std::string>& words = {},
      const std::function<void()>& prepare = [] {}) {
    return inChild([&] {
      char path_[] = "PATH=/bin";
      char colour[] = "COLOUR=blue";
      char* environment_[] = {path_, colour, nullptr};
      RunOptions::instance().environment = environment_;
      ::setenv("NOT_OURS", "1", 1);
      prepare();
      return runAndWait(path, words) ? kSucceeded : 0;
    });
  }

  static std::vector<doubles::Record> logLines() { return doubles::records({doubles::Kind::kLog}); }
};

TEST_F(ExecRoutine, TheProgramGetsItsPathAndTheArguments) {
  writeScript(R"(for word in "$0" "$@"; do echo "<$word>"; done > /tmp/words)");
  EXPECT_EQ(run(kScript, {"start", "", "two words", "$HOME", "--x"}).status, kSucceeded);
  EXPECT_EQ(readFile("/tmp/words"), "</sbin/script>\n<start>\n<>\n<two words>\n<$HOME>\n<--x>\n");
  EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(ExecRoutine, TheProgramGetsTheEnvironmentOfTheRunOptionsAlone) {
  writeScript("/bin/env > /tmp/environment\n");
  EXPECT_EQ(run().status, kSucceeded);
  const std::string environment_ = readFile("/tmp/environment");
  EXPECT_THAT(environment_, testing::HasSubstr("COLOUR=blue\n"));
  EXPECT_THAT(environment_, testing::HasSubstr("PATH=/bin\n"));
  EXPECT_THAT(environment_, testing::Not(testing::HasSubstr("NOT_OURS")));
}

TEST_F(ExecRoutine, TheProgramIsWaitedFor) {
  writeScript("sleep 0.2; echo done > /tmp/done\n");
  EXPECT_EQ(run().status, kSucceeded);
  EXPECT_TRUE(exists("/tmp/done"));
}

TEST_F(ExecRoutine, TheProgramsStreamsAreTheNullDevice) {
  writeScript(
      "echo out; echo err >&2; if read line; then echo input; else echo none; fi "
      "> /tmp/input\n");
  const Outcome outcome = run();
  EXPECT_EQ(outcome.status, kSucceeded);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(readFile("/tmp/input"), "none\n");
}

TEST_F(ExecRoutine, TheProgramHasNoOtherDescriptor) {
  writeScript(
      "for fd in 3 4 5 6 7 8 9 77 250 900; do\n"
      "  if (: <&$fd) 2> /dev/null; then echo $fd; fi\n"
      "done > /tmp/descriptors\n");
  const Outcome outcome = run(kScript, {}, [] {
    for (const int fd : {5, 9, 77, 250, 900}) ::dup2(STDERR_FILENO, fd);
  });
  EXPECT_EQ(outcome.status, kSucceeded);
  EXPECT_EQ(readFile("/tmp/descriptors"), "");
}

TEST_F(ExecRoutine, ThatScriptWouldSeeADescriptor) {
  writeScript("if (: <&77) 2> /dev/null; then echo yes; else echo no; fi > /tmp/descriptor\n");
  inChild([] {
    ::dup2(STDERR_FILENO, 77);
    return ::execl(kScript, kScript, nullptr);
  });
  EXPECT_EQ(readFile("/tmp/descriptor"), "yes\n");
}

TEST_F(ExecRoutine, TheProgramDiesOfABrokenPipeAgain) {
  writeScript("(yes; echo $? > /tmp/status) | head -n 1\n");
  const Outcome outcome = run(kScript, {}, [] { std::signal(SIGPIPE, SIG_IGN); });
  EXPECT_EQ(outcome.status, kSucceeded);
  EXPECT_EQ(readFile("/tmp/status"), std::to_string(128 + SIGPIPE) + "\n");
}

TEST_F(ExecRoutine, TheProgramHasNoSignalBlockedOrIgnored) {
  writeScript(
      "for n in 1 2 10 12 13 14 15; do\n"
      "  sh -c \"kill -$n \\$\\$; exit 0\" 2> /dev/null\n"
      "  [ $? = 0 ] && echo $n\n"
      "done > /tmp/deaf; true\n");
  const Outcome outcome = run(kScript, {}, [] {
    sigset_t all;
    sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, nullptr);
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) std::signal(signal, SIG_IGN);
  });
  EXPECT_EQ(outcome.status, kSucceeded);
  EXPECT_EQ(readFile("/tmp/deaf"), "");
}

TEST_F(ExecRoutine, OnlyANormalEndWithStatusZeroIsASuccess) {
  for (const char* text : {"exit 3\n", "exit 1\n", "exit 255\n", "kill -9 $$\n", "kill -15 $$\n"}) {
    writeScript(text);
    EXPECT_EQ(run().status, 0) << text;
  }
  EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(ExecRoutine, AMissingProgramIsToldByTheChild) {
  EXPECT_EQ(run("/sbin/missing").status, 0);
  EXPECT_THAT(doubles::records(),
              ElementsAre(logSetup("Log_Detach"), logSetup("Log_Detach"),
                          logLine(2,
                                  "execve(/sbin/missing) failure: No such file or "
                                  "directory\n")));
}

TEST_F(ExecRoutine, AFileThatIsNotExecutableIsTold) {
  writeFile(kScript, "#!/bin/sh\n", 0644);
  run();
  EXPECT_THAT(logLines(),
              ElementsAre(logLine(2, "execve(/sbin/script) failure: Permission denied\n")));
}

TEST_F(ExecRoutine, AFileThatIsNoProgramIsTold) {
  writeFile(kScript, "hello", 0755);
  run();
  EXPECT_THAT(logLines(),
              ElementsAre(logLine(2, "execve(/sbin/script) failure: Exec format error\n")));
}

volatile std::sig_atomic_t exitStatus = -1;

void noteExitStatus(int, siginfo_t* information, void*) {
  if (information->si_code == CLD_EXITED) exitStatus = information->si_status;
}

TEST_F(ExecRoutine, AChildThatCannotExecuteItExitsWithStatusOne) {
  const Outcome outcome = inChild([]() -> int {
    struct sigaction action {};
    action.sa_sigaction = &noteExitStatus;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    ::sigaction(SIGCHLD, &action, nullptr);
    return runAndWait("/sbin/missing", {}) ? 99 : exitStatus;
  });
  EXPECT_EQ(outcome.status, 1);
}

TEST_F(ExecRoutine, WithoutAChildTheProgramIsNotStarted) {
  writeScript("echo > /tmp/ran\n");
  // The fork that makes the test's own process goes through.
  failCall("fork", {.error = EAGAIN, .times = 1, .skip = 1});
  EXPECT_EQ(run().status, 0);
  EXPECT_FALSE(exists("/tmp/ran"));
  EXPECT_THAT(logLines(), ElementsAre(logLine(2,
                                              "fork(/sbin/script) failure: Resource "
                                              "temporarily unavailable\n")));
}

TEST_F(ExecRoutine, AnInterruptedWaitIsRepeated) {
  writeScript("exit 0\n");
  failCall("waitpid", {.error = EINTR, .times = 3, .where = Where::kOtherProcesses});
  EXPECT_EQ(run().status, kSucceeded);
}

TEST_F(ExecRoutine, AWaitThatFailsIsNoSuccess) {
  writeScript("exit 0\n");
  failCall("waitpid", {.error = ECHILD, .times = 1, .where = Where::kOtherProcesses});
  EXPECT_EQ(run().status, 0);
}

TEST_F(ExecRoutine, WithoutANullDeviceTheProgramRunsOnTheStreamsThatAreThere) {
  writeScript("echo out; echo err >&2\n");
  // The first open of the test's own process goes through.
  failCall("open", {.error = ENOENT, .times = 2, .skip = 1});
  const Outcome outcome = run();
  EXPECT_EQ(outcome.status, kSucceeded);
  EXPECT_EQ(outcome.out, "out\n");
  EXPECT_EQ(outcome.err, "err\n");
  EXPECT_THAT(logLines(), ElementsAre(logLine(3, "Failed opening /dev/null\n"),
                                      logLine(3, "Failed opening log file /dev/null\n")));
}

}  // namespace
}  // namespace bootforge::test
