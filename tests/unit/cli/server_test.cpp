// The executor process, as its clients see it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "cli/control_socket.h"
#include "cli/hypcli_executor.h"
#include "tests/double/faults.h"
#include "tests/double/script.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/cli/executor_fixture.h"

namespace bootforge {
namespace {

using doubles::cli;
using doubles::failCall;
using doubles::logLine;
using doubles::script;
using doubles::waitForRecord;
using doubles::Where;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Where kInTheExecutor = Where::kOtherProcesses;

/// The commands that were executed, in order.
std::vector<std::string> executed() {
  const std::string prefix = "ExecuteCommand bootforge: ";
  std::vector<std::string> commands;
  for (const doubles::Record& record : doubles::records({doubles::Kind::kCli})) {
    if (record.text.find(prefix) == 0) commands.push_back(record.text.substr(prefix.size()));
  }
  return commands;
}

class Server : public ExecutorTest {};

TEST_F(Server, AnswersWithStatus0AndClosesTheConnection) {
  startExecutor();
  RawClient client;
  client.send("network ip set --interface=eth0");
  EXPECT_EQ(client.status(), 0);
  EXPECT_TRUE(client.ended());
  EXPECT_THAT(executed(), ElementsAre("network ip set --interface=eth0"));
}

TEST_F(Server, MakesItsDispatcherOnceForManyCommands) {
  startExecutor();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(statusOf("a"), 0);
  const auto records = doubles::records({doubles::Kind::kCli});
  EXPECT_EQ(std::count(records.begin(), records.end(), cli("Dispatcher")), 1);
}

TEST_F(Server, AFailingCommandYieldsStatus1AndTheServerGoesOn) {
  script().commands["bad"] = doubles::failsWith({"one", "two"});
  startExecutor();
  EXPECT_EQ(statusOf("bad"), 1);
  EXPECT_EQ(statusOf("good"), 0);
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling,
                                        logLine(2, "execution of 'bad' failed : one\n"),
                                        logLine(2, "execution of 'bad' failed : two\n")));
}

TEST_F(Server, ACommandThatCannotBeParsedYieldsStatus1) {
  script().parses["\"open"] = {.succeeds = false, .errors = {"unterminated quote"}};
  startExecutor();
  EXPECT_EQ(statusOf("\"open"), 1);
  EXPECT_EQ(logRecords().back(),
            logLine(2, "Executor was unable to parse command: unterminated quote\n"));
}

TEST_F(Server, ExceptionsOfAnyTypeYieldStatus1) {
  script().commands["a"] = doubles::commandThrowsError("broken");
  script().commands["b"] = doubles::commandThrowsOther();
  startExecutor();
  EXPECT_EQ(statusOf("a"), 1);
  EXPECT_EQ(statusOf("b"), 1);
  EXPECT_EQ(statusOf("c"), 0);
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling));
}

TEST_F(Server, ADispatcherThatCannotBeMadeYieldsStatus1ForEachCommand) {
  script().onAddExternalDirectory = doubles::throwsOther();
  startExecutor();
  EXPECT_EQ(statusOf("a"), 1);
  EXPECT_EQ(statusOf("b"), 1);
}

TEST_F(Server, ALongRequestIsCutAt1023Bytes) {
  startExecutor();
  std::string request;
  for (int i = 0; i < 1500; ++i) request += static_cast<char>('a' + i % 26);
  HypcliExecutor::instance().runCommand(request);
  EXPECT_THAT(executed(), ElementsAre(request.substr(0, 1023)));
}

TEST_F(Server, ARequestOfExactly1023BytesIsWhole) {
  startExecutor();
  const std::string request(1023, 'x');
  EXPECT_EQ(statusOf(request), 0);
  EXPECT_THAT(executed(), ElementsAre(request));
}

TEST_F(Server, FiveThousandBytesAreCutAndAnswered) {
  startExecutor();
  EXPECT_EQ(statusOf(std::string(5000, 'y')), 0);
  EXPECT_EQ(statusOf("after"), 0);
  EXPECT_THAT(executed(), ElementsAre(std::string(1023, 'y'), "after"));
}

TEST_F(Server, ARequestEndsAtItsFirstZeroByte) {
  startExecutor();
  EXPECT_EQ(statusOf(std::string("network\0stop", 12)), 0);
  EXPECT_EQ(statusOf(std::string("\0stop", 5)), 0);
  EXPECT_EQ(statusOf(std::string("sto\0p", 5)), 0);
  EXPECT_THAT(executed(), ElementsAre("network", "", "sto"));
}

TEST_F(Server, AnyBytesAreARequest) {
  startExecutor();
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  EXPECT_EQ(statusOf(bytes), 0);
  EXPECT_EQ(statusOf("%s%n%s%n"), 0);
  EXPECT_EQ(executed().size(), 2U);
}

TEST_F(Server, AConnectionThatClosesIsAnEmptyCommandWhoseStatusCannotBeSent) {
  startExecutor();
  RawClient().close();
  EXPECT_TRUE(waitForRecord(kStatusNotSent));
  EXPECT_EQ(statusOf("after"), 0);
  EXPECT_THAT(executed(), ElementsAre("", "after"));
}

TEST_F(Server, AClientThatDiesMeanwhileCostsAMessageOnly) {
  script().commands["slow"] = doubles::waitsForFile("/go");
  startExecutor();
  {
    RawClient client;
    client.send("slow");
    ASSERT_TRUE(waitForRecord(cli("ExecuteCommand bootforge: slow")));
  }
  test::writeFile("/go", "");
  EXPECT_TRUE(waitForRecord(kStatusNotSent));
  EXPECT_EQ(statusOf("after"), 0);
}

TEST_F(Server, RunsOneCommandAtATimeInTheOrderOfTheirConnections) {
  script().commands["first"] = doubles::waitsForFile("/go");
  startExecutor();
  RawClient first;
  first.send("first");
  ASSERT_TRUE(waitForRecord(cli("ExecuteCommand bootforge: first")));
  RawClient second;
  RawClient third;
  third.send("third");
  second.send("second");
  EXPECT_THAT(executed(), ElementsAre("first"));
  test::writeFile("/go", "");
  EXPECT_EQ(third.status(), 0);
  EXPECT_EQ(second.status(), 0);
  EXPECT_EQ(first.status(), 0);
  EXPECT_THAT(executed(), ElementsAre("first", "second", "third"));
}

TEST_F(Server, AFailingAcceptIsLoggedAndTheConnectionServedAfterAll) {
  startExecutor();
  failCall("accept", {.error = EMFILE, .where = kInTheExecutor});
  EXPECT_EQ(statusOf("a"), 0);
  EXPECT_EQ(logRecords().back(),
            logLine(3, "Error accepting connection on contol socket - Too many open files\n\n"));
}

// They would wait for an answer for ever.
TEST_F(Server, OutOfDescriptorsEveryClientIsServedAllTheSame) {
  const doubles::Record outOfThem =
      logLine(3, "Error accepting connection on contol socket - Too many open files\n\n");
  const pid_t executor = startExecutor().number();
  // The limit that is just too small for one more.
  for (rlim_t limit = 64; logRecords().back() != outOfThem; --limit) {
    ASSERT_GT(limit, 3U);
    const rlimit most{limit, limit};
    ASSERT_EQ(::prlimit(executor, RLIMIT_NOFILE, &most, nullptr), 0);
    ASSERT_EQ(statusOf("a"), 0);
  }
  const std::size_t before = logRecords().size();
  EXPECT_EQ(statusOf("b"), 0);
  EXPECT_EQ(statusOf("c"), 0);
  EXPECT_EQ(logRecords().size(), before + 2);
  EXPECT_EQ(executed().back(), "c");
  HypcliExecutor::instance().stop();
  EXPECT_TRUE(executors().back().waitForEnd());
}

// Out of memory it fails again and again: the log must not grow as fast as the disk takes it.
TEST_F(Server, AFailingAcceptIsRepeatedTenTimesASecondAtMost) {
  startExecutor();
  constexpr int kFailures = 5;
  failCall("accept", {.error = ENFILE, .times = kFailures, .where = kInTheExecutor});
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(statusOf("a"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - before, kFailures * std::chrono::milliseconds(90));
}

TEST_F(Server, AFailingReceiveIsLoggedAndTheConnectionClosed) {
  startExecutor();
  failCall("recv", {.error = ENOMEM, .where = kInTheExecutor});
  RawClient client;
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(
      waitForRecord(logLine(3, "Failed to read message from socket - Cannot allocate memory\n\n")));
  EXPECT_THAT(executed(), IsEmpty());
  EXPECT_EQ(statusOf("after"), 0);
}

TEST_F(Server, AClientThatSaysNothingIsNotWaitedForForEver) {
  static_assert(kRequestSeconds == 10);
  doubles::receiveWithin(50);
  startExecutor();
  RawClient silent;
  EXPECT_TRUE(silent.ended());
  EXPECT_EQ(statusOf("a"), 0);
  EXPECT_THAT(logRecords(),
              ElementsAre(kResetRequested, kPolling,
                          logLine(3,
                                  "Failed to read message from socket - Resource temporarily "
                                  "unavailable\n\n")));
  EXPECT_THAT(executed(), ElementsAre("a"));
}

TEST_F(Server, AClientOfAnotherUserIsRefused) {
  constexpr uid_t kSomebody = 54321;
  startExecutor();
  ASSERT_EQ(::chmod(kSocketPath, 0777), 0);
  const uid_t ours = ::geteuid();
  if (::seteuid(kSomebody) != 0) GTEST_SKIP() << "there is no other user here";
  RawClient stranger;
  ASSERT_EQ(::seteuid(ours), 0);
  stranger.trySend("stop");
  EXPECT_TRUE(stranger.ended());
  EXPECT_EQ(statusOf("a"), 0);
  EXPECT_THAT(logRecords(),
              ElementsAre(kResetRequested, kPolling,
                          logLine(3,
                                  "Refused a connection on the control socket - Operation not "
                                  "permitted\n")));
}

TEST_F(Server, AClientThatCannotBeLookedAtIsRefused) {
  startExecutor();
  failCall("getsockopt", {.error = ENOBUFS, .where = kInTheExecutor});
  RawClient client;
  EXPECT_TRUE(client.ended());
  EXPECT_EQ(statusOf("a"), 0);
  EXPECT_EQ(logRecords().back(),
            logLine(3, "Refused a connection on the control socket - No buffer space available\n"));
}

TEST_F(Server, AFailingSendIsLoggedAndTheConnectionClosed) {
  startExecutor();
  failCall("send", {.error = ENOBUFS, .where = kInTheExecutor});
  RawClient client;
  client.send("a");
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(waitForRecord(kStatusNotSent));
}

TEST_F(Server, InterruptedCallsAreRepeated) {
  startExecutor();
  for (const char* call : {"accept", "recv", "send"}) {
    failCall(call, {.error = EINTR, .times = 3, .where = kInTheExecutor});
    EXPECT_EQ(statusOf("a"), 0);
  }
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling));
}

TEST_F(Server, StopsWithoutAReplyAndLeavesItsName) {
  const Process& executor = startExecutor();
  RawClient client;
  client.send("stop");
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(executor.waitForEnd());
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling, kSignalledToStop));
  EXPECT_TRUE(std::filesystem::is_socket(kSocketPath));
  EXPECT_EQ(HypcliExecutor::instance().connectToExecutor(false).get(), -1);
}

TEST_F(Server, StopsInAnyCaseAndOnAnyTextThatBeginsSo) {
  for (const char* request : {"STOP", "Stop", "stopper", "StOp the network"}) {
    const Process& executor = startExecutor();
    RawClient client;
    client.send(request);
    EXPECT_TRUE(client.ended());
    EXPECT_TRUE(executor.waitForEnd()) << request;
  }
  EXPECT_THAT(executed(), IsEmpty());
}

TEST_F(Server, ACommandThatBeginsWithStopFailsInTheClient) {
  const Process& executor = startExecutor();
  EXPECT_THAT(exceptionOf([] { HypcliExecutor::instance().runCommand("Stop everything"); }),
              testing::StartsWith("Failed to recieve command status from Executor: "));
  EXPECT_TRUE(executor.waitForEnd());
}

TEST_F(Server, TheClientsStopEndsIt) {
  const Process& executor = startExecutor();
  HypcliExecutor::instance().stop();
  EXPECT_TRUE(executor.waitForEnd());
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling, kSignalledToStop, kStopped));
  HypcliExecutor::instance().stop();
  EXPECT_EQ(logRecords().back(), logLine(5, "Executor already gone.\n"));
}

// Otherwise a run right behind another one finds the executor that is about to end, and loses the
// command that it sends there.
TEST_F(Server, NobodyCanConnectOnceAStopIsAcknowledged) {
  for (int run = 0; run < 30; ++run) {
    startExecutor();
    HypcliExecutor::instance().stop();
    ASSERT_FALSE(HypcliExecutor::instance().connectToExecutor(false)) << "in run " << run;
    ASSERT_EQ(errno, ECONNREFUSED);
  }
}

TEST_F(Server, WhoHasConnectedBeforeAStopIsServed) {
  script().commands["slow"] = doubles::waitsForFile("/go");
  const Process& executor = startExecutor();
  RawClient client;
  client.send("slow");
  ASSERT_TRUE(waitForRecord(cli("ExecuteCommand bootforge: slow")));
  RawClient stopper;
  stopper.send("stop");
  RawClient second;
  RawClient third;
  third.send("third");
  test::writeFile("/go", "");
  EXPECT_TRUE(stopper.ended());
  second.send("second");
  EXPECT_EQ(second.status(), 0);
  EXPECT_EQ(third.status(), 0);
  EXPECT_THAT(executed(), ElementsAre("slow", "second", "third"));
  EXPECT_TRUE(executor.waitForEnd());
}

TEST_F(Server, AStopAfterACommandWaitsForIt) {
  script().commands["slow"] = doubles::waitsForFile("/go");
  const Process& executor = startExecutor();
  RawClient client;
  client.send("slow");
  ASSERT_TRUE(waitForRecord(cli("ExecuteCommand bootforge: slow")));
  RawClient stopper;
  stopper.send("stop");
  test::writeFile("/go", "");
  EXPECT_EQ(client.status(), 0);
  EXPECT_TRUE(stopper.ended());
  EXPECT_TRUE(executor.waitForEnd());
}

class ExecutorProcess : public ExecutorTest {};

TEST_F(ExecutorProcess, HasANameOfItsOwn) {
  script().commands["name"] = [](const auto&, auto& output) {
    char name[16] = {};
    ::prctl(PR_GET_NAME, name);
    output.AddError(name);
  };
  startExecutor();
  EXPECT_EQ(statusOf("name"), 1);
  EXPECT_EQ(logRecords().back(), logLine(2, "execution of 'name' failed : bootforge-cli\n"));
}

TEST_F(ExecutorProcess, LetsGoOfTheLogBeforeItClosesTheDescriptors) {
  startExecutor();
  EXPECT_THAT(doubles::records(),
              ElementsAre(kResetRequested, doubles::logSetup("Log_Detach"), kPolling));
}

TEST_F(ExecutorProcess, HasASessionOfItsOwnInTheRootFolder) {
  script().commands["where"] = [](const auto&, auto& output) {
    output.AddError(::getsid(0) == ::getpid() || ::getsid(0) == ::getpgrp() ? "own session" : "");
    output.AddError(std::filesystem::current_path());
  };
  std::filesystem::create_directory("/elsewhere");
  ASSERT_EQ(::chdir("/elsewhere"), 0);
  startExecutor();
  EXPECT_EQ(statusOf("where"), 1);
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling,
                                        logLine(2, "execution of 'where' failed : own session\n"),
                                        logLine(2, "execution of 'where' failed : /\n")));
}

TEST_F(ExecutorProcess, HoldsNoDescriptorOfTheOrchestrator) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);  // inherited by every child that does not close it
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  startExecutor();
  writer.reset();
  pollfd wait{reader.get(), POLLIN, 0};
  EXPECT_EQ(::poll(&wait, 1, 20000), 1);
  EXPECT_EQ(wait.revents, POLLHUP);
}

TEST_F(ExecutorProcess, HasItsStreamsInItsOutputFile) {
  script().commands["print"] = [](const auto&, auto& output) {
    char byte;
    if (::read(STDIN_FILENO, &byte, 1) != 0) output.AddError("standard input has something");
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
      if (::write(stream, "printed\n", 8) != 8) output.AddError("nothing written");
    }
  };
  test::writeFile(kExecutorOutput, "before\n");
  startExecutor();
  EXPECT_EQ(statusOf("print"), 0);
  EXPECT_EQ(test::readFile(kExecutorOutput), "before\nprinted\nprinted\n");
}

TEST_F(ExecutorProcess, ServesWithoutALogFolderAfterOneWarning) {
  std::filesystem::remove_all("/var/log");
  startExecutor();
  EXPECT_EQ(statusOf("a"), 0);
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested,
                                        logLine(3,
                                                "Failed opening log file "
                                                "/var/log/bootforge-hypcli-stdout.log\n"),
                                        kPolling));
}

TEST_F(ExecutorProcess, DoesNotWaitForAReaderOfItsOutput) {
  ASSERT_EQ(::mkfifo(kExecutorOutput, 0600), 0);
  startExecutor();
  EXPECT_EQ(statusOf("a"), 0);
  EXPECT_EQ(logRecords()[1],
            logLine(3, "Failed opening log file /var/log/bootforge-hypcli-stdout.log\n"));
}

TEST_F(ExecutorProcess, SurvivesTheEndOfItsClientsPipe) {
  script().commands["signal"] = [](const auto&, auto& output) {
    struct sigaction action {};
    ::sigaction(SIGPIPE, nullptr, &action);
    if (action.sa_handler != SIG_IGN) output.AddError("SIGPIPE would end this process");
  };
  ::signal(SIGPIPE, SIG_IGN);  // as the executor object set it for this process when it was made
  startExecutor();
  EXPECT_EQ(statusOf("signal"), 0);
}

TEST_F(ExecutorProcess, HasNoSignalBlockedAndOnlyABrokenPipeIgnored) {
  script().commands["look"] = [](const auto&, auto& output) {
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGUSR1}) {
      struct sigaction action {};
      ::sigaction(number, nullptr, &action);
      if (action.sa_handler != SIG_DFL || sigismember(&mask, number) != 0) {
        output.AddError("signal " + std::to_string(number));
      }
    }
  };
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  ::signal(SIGHUP, SIG_IGN);
  startExecutor();
  ::signal(SIGHUP, SIG_DFL);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(statusOf("look"), 0);
}

TEST_F(ExecutorProcess, OpensNoFurtherDescriptorPerCommand) {
  script().commands["count"] = [](const auto&, auto& output) {
    output.AddError(std::to_string(test::countOpenDescriptors()));
  };
  script().commands["bad"] = doubles::commandThrowsOther();
  startExecutor();
  EXPECT_EQ(statusOf("count"), 1);
  const doubles::Record first = logRecords().back();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(statusOf("good"), 0);
    EXPECT_EQ(statusOf("bad"), 1);
    RawClient().close();
  }
  EXPECT_EQ(statusOf("count"), 1);
  EXPECT_EQ(logRecords().back(), first);
}

}  // namespace
}  // namespace bootforge
