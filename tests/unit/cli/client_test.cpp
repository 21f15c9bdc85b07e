// The orchestrator's end, against a stand-in for the executor process.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "cli/hypcli_executor.h"
#include "tests/double/faults.h"
#include "tests/double/script.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/cli/executor_fixture.h"
#include "util/exception.h"

namespace bootforge {
namespace {

using doubles::callCount;
using doubles::failCall;
using doubles::logLine;
using doubles::Where;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

/// Answers one request with some bytes.
std::function<void(const UniqueFd&)> answering(std::string bytes) {
  return [bytes = std::move(bytes)](const UniqueFd& connection) {
    receive(connection);
    EXPECT_EQ(::send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  };
}

std::string statusBytes(std::int32_t status) {
  return {reinterpret_cast<const char*>(&status), sizeof status};
}

/// Closes the connection without reading anything.
void hangUp(const UniqueFd&) {}

class Connect : public ExecutorTest {};

TEST_F(Connect, GivesAConnectionThatIsClosedByExec) {
  const FakeExecutor executor({hangUp});
  const UniqueFd connection = client().connectToExecutor(true);
  EXPECT_GT(connection.get(), 0);
  EXPECT_EQ(::fcntl(connection.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_THAT(logRecords(), IsEmpty());
}

TEST_F(Connect, AFailingSocketIsAlwaysLogged) {
  for (const bool reportFailure : {true, false}) {
    failCall("socket", {.error = EMFILE});
    EXPECT_EQ(client().connectToExecutor(reportFailure).get(), -1);
    EXPECT_EQ(errno, EMFILE);
  }
  const auto line = logLine(2, "Failed creating bootforge client socket Too many open files\n");
  EXPECT_THAT(logRecords(), ElementsAre(line, line));
}

TEST_F(Connect, AFailingConnectIsLoggedWhenAsked) {
  EXPECT_EQ(client().connectToExecutor(false).get(), -1);
  EXPECT_THAT(logRecords(), IsEmpty());
  EXPECT_EQ(client().connectToExecutor(true).get(), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(logRecords(),
              ElementsAre(logLine(2, "Failed connecting to executor No such file or directory\n")));
}

TEST_F(Connect, AnExecutorOfAnotherUserIsNoExecutor) {
  constexpr uid_t kSomebody = 54321;
  const UniqueFd stranger(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, kSocketPath);
  ASSERT_EQ(::bind(stranger.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const uid_t ours = ::geteuid();
  // Whoever calls listen(2) is the peer of those who connect.
  if (::seteuid(kSomebody) != 0) GTEST_SKIP() << "there is no other user here";
  const int listening = ::listen(stranger.get(), 1);
  ASSERT_EQ(::seteuid(ours), 0);
  ASSERT_EQ(listening, 0);
  EXPECT_FALSE(client().connectToExecutor(true));
  EXPECT_EQ(errno, EPERM);
  EXPECT_THAT(logRecords(), ElementsAre(logLine(2,
                                                "Failed connecting to executor Operation not "
                                                "permitted\n")));
}

TEST_F(Connect, AnExecutorThatCannotBeLookedAtIsNoExecutor) {
  const FakeExecutor executor({hangUp});
  failCall("getsockopt", {.error = ENOBUFS});
  EXPECT_FALSE(client().connectToExecutor(true));
  EXPECT_EQ(errno, ENOBUFS);
  EXPECT_THAT(logRecords(), ElementsAre(logLine(2,
                                                "Failed connecting to executor No buffer space "
                                                "available\n")));
}

TEST_F(Connect, AnInterruptedConnectIsRepeated) {
  const FakeExecutor executor({hangUp});
  failCall("connect", {.error = EINTR, .times = 2});
  EXPECT_GT(client().connectToExecutor(true).get(), 0);
  EXPECT_EQ(callCount("connect"), 3);
  EXPECT_THAT(logRecords(), IsEmpty());
}

class RunCommand : public ExecutorTest {};

TEST_F(RunCommand, SendsTheTextWithoutATerminatorAndReturnsOnStatus0) {
  std::string request;
  FakeExecutor executor({[&](const UniqueFd& connection) {
    request = receive(connection);
    const std::string status = statusBytes(0);
    EXPECT_EQ(::send(connection.get(), status.data(), status.size(), 0), 4);
  }});
  client().runCommand("network ip set --interface=eth0");
  executor.finish();
  EXPECT_EQ(request, "network ip set --interface=eth0");
  EXPECT_THAT(doubles::records(), IsEmpty());
}

TEST_F(RunCommand, SendsNoMoreThanTheCString) {
  std::string request;
  FakeExecutor executor({[&](const UniqueFd& connection) {
    request = receive(connection);
    const std::string status = statusBytes(0);
    EXPECT_EQ(::send(connection.get(), status.data(), status.size(), 0), 4);
  }});
  client().runCommand(std::string("seen\0unseen", 11));
  executor.finish();
  EXPECT_EQ(request, "seen");
}

TEST_F(RunCommand, AnyOtherStatusFails) {
  for (const std::int32_t status : {1, -1, 256}) {
    std::filesystem::remove(kSocketPath);
    const FakeExecutor executor({answering(statusBytes(status))});
    EXPECT_EQ(exceptionOf([] { client().runCommand("disk mount"); }),
              "Executor failed executing hypcli command: disk mount");
  }
  EXPECT_THAT(logRecords(), IsEmpty());
}

TEST_F(RunCommand, AShortReplyIsJudgedByTheBytesThatCame) {
  {
    const FakeExecutor executor({answering(std::string(1, '\0'))});
    client().runCommand("a");
  }
  std::filesystem::remove(kSocketPath);
  const FakeExecutor executor({answering(std::string("\0\1", 2))});
  EXPECT_EQ(exceptionOf([] { client().runCommand("a"); }),
            "Executor failed executing hypcli command: a");
}

TEST_F(RunCommand, AnEmptyCommandFailsAndIsNotSent) {
  EXPECT_EQ(exceptionOf([] { client().runCommand(""); }),
            "Executor failed executing hypcli command: ");
  EXPECT_EQ(exceptionOf([] { client().runCommand(std::string("\0a", 2)); }),
            "Executor failed executing hypcli command: ");
  EXPECT_EQ(callCount("socket"), 0);
  EXPECT_THAT(doubles::records(), IsEmpty());
}

TEST_F(RunCommand, AnExecutorThatHangsUpAfterTheRequestFailsIt) {
  const FakeExecutor executor({[](const UniqueFd& connection) { receive(connection); }});
  EXPECT_THAT(exceptionOf([] { client().runCommand("a"); }),
              StartsWith("Failed to recieve command status from Executor: "));
}

TEST_F(RunCommand, AFailingReceiveIsToldWithItsReason) {
  startExecutor();
  failCall("recv", {.error = ECONNRESET, .where = Where::kThisProcess});
  EXPECT_EQ(exceptionOf([] { client().runCommand("a"); }),
            "Failed to recieve command status from Executor: Connection reset by peer");
}

TEST_F(RunCommand, AFailingSendIsToldWithItsReason) {
  const FakeExecutor executor({[](const UniqueFd& connection) { receive(connection); }});
  failCall("send", {.error = EPIPE});
  EXPECT_EQ(exceptionOf([] { client().runCommand("a"); }),
            "Failed sending command to executor: Broken pipe");
}

TEST_F(RunCommand, InterruptedCallsAreRepeated) {
  startExecutor();
  for (const char* call : {"connect", "send", "recv"}) {
    doubles::resetFaults();
    failCall(call, {.error = EINTR, .times = 2, .where = Where::kThisProcess});
    client().runCommand("a");
    EXPECT_EQ(callCount(call, Where::kThisProcess), 3) << call;
  }
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling));
}

TEST_F(RunCommand, GivesUpAfterTenConnectionsAndTenRestarts) {
  std::filesystem::remove_all("/var/run/nimbus");
  EXPECT_EQ(exceptionOf([] { client().runCommand("a"); }),
            "Could not connect to Executor:No such file or directory");

  std::vector<doubles::Record> expected;
  for (int attempt = 0; attempt < 10; ++attempt) {
    expected.push_back(logLine(2, "Failed connecting to executor No such file or directory\n"));
    expected.push_back(kResetRequested);
    expected.push_back(logLine(2,
                               "Unable to start executor: Failed to bind to executor control "
                               "socket: No such file or directory\n"));
    expected.push_back(
        logLine(2, "Resetting Executor failed, retrying: Bootforge executor failed to start\n"));
  }
  EXPECT_EQ(logRecords(), expected);
  EXPECT_EQ(callCount("fork", Where::kThisProcess), 10);
  EXPECT_EQ(callCount("connect", Where::kThisProcess), 20);
}

TEST_F(RunCommand, TheLastConnectsErrorIsToldWhateverTheRestartMet) {
  failCall("connect", {.error = EACCES, .times = 100, .where = Where::kThisProcess});
  failCall("fork", {.error = ENOMEM, .times = 100});
  EXPECT_EQ(exceptionOf([] { client().runCommand("a"); }),
            "Could not connect to Executor:Permission denied");
  EXPECT_EQ(
      logRecords()[2],
      logLine(2, "Resetting Executor failed, retrying: Failed to forkCannot allocate memory\n"));
}

TEST_F(RunCommand, WhatIsNoExceptionOfOursIsRetriedToo) {
  doubles::script().onLog = [](const std::string& text) {
    if (text == kResetRequested.text) throw std::runtime_error("not ours");
  };
  EXPECT_EQ(exceptionOf([] { client().runCommand("a"); }),
            "Could not connect to Executor:No such file or directory");
  const auto records = logRecords();
  ASSERT_EQ(records.size(), 20U);
  EXPECT_EQ(records[1], logLine(2, "Resetting Executor failed, retrying\n"));
  EXPECT_EQ(records[19], logLine(2, "Resetting Executor failed, retrying\n"));
}

TEST_F(RunCommand, LeavesNoDescriptorOpen) {
  FakeExecutor executor({answering(statusBytes(0)), answering(statusBytes(1)), hangUp,
                         [](const UniqueFd& connection) { receive(connection); }});
  const int before = test::countOpenDescriptors();
  client().runCommand("a");
  EXPECT_THROW(client().runCommand("b"), Exception);
  EXPECT_THROW(client().runCommand("c"), Exception);
  failCall("send", {.error = EPIPE});
  EXPECT_THROW(client().runCommand("d"), Exception);
  executor.finish();  // and has closed its own ends
  EXPECT_EQ(test::countOpenDescriptors(), before);
}

class Stop : public ExecutorTest {};

TEST_F(Stop, WithoutAnExecutorOnlySaysSo) {
  client().stop();
  EXPECT_THAT(doubles::records(), ElementsAre(logLine(5, "Executor already gone.\n")));
}

TEST_F(Stop, SendsFourBytesAndTakesTheEndOfTheStreamForAnAnswer) {
  std::string request;
  FakeExecutor executor({[&](const UniqueFd& connection) { request = receive(connection); }});
  client().stop();
  executor.finish();
  EXPECT_EQ(request, "stop");
  EXPECT_THAT(doubles::records(), ElementsAre(kStopped));
}

TEST_F(Stop, AReplyIsNoAnswer) {
  const FakeExecutor executor({answering(statusBytes(1))});
  client().stop();
  EXPECT_THAT(doubles::records(), IsEmpty());
}

TEST_F(Stop, AFailingReceiveCountsAsStopped) {
  startExecutor();
  failCall("recv", {.error = ECONNRESET, .where = Where::kThisProcess});
  client().stop();
  EXPECT_TRUE(doubles::waitForRecord(kSignalledToStop));
  EXPECT_THAT(logRecords(), testing::Contains(kStopped));
}

TEST_F(Stop, AFailingSendIsToldWithItsReason) {
  const FakeExecutor executor({[](const UniqueFd& connection) { receive(connection); }});
  failCall("send", {.error = EPIPE});
  EXPECT_EQ(exceptionOf([] { client().stop(); }), "Failed sending STOP to executorBroken pipe");
}

TEST_F(Stop, InterruptedCallsAreRepeated) {
  const Process& executor = startExecutor();
  failCall("send", {.error = EINTR, .times = 2, .where = Where::kThisProcess});
  failCall("recv", {.error = EINTR, .times = 2, .where = Where::kThisProcess});
  client().stop();
  EXPECT_TRUE(executor.waitForEnd());
  EXPECT_EQ(logRecords().back(), kStopped);
}

}  // namespace
}  // namespace bootforge
