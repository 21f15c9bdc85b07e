// What the tests of the CLI executor share.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "cli/hypcli_executor.h"
#include "tests/double/recorder.h"
#include "util/unique_fd.h"

namespace bootforge {

inline constexpr const char* kSocketPath = "/var/run/nimbus/bootforgeExecutor.sock";
inline constexpr const char* kExecutorOutput = "/var/log/bootforge-hypcli-stdout.log";

inline const doubles::Record kResetRequested =
    doubles::logLine(5, "Setting up Executor - Reset Requested\n");
inline const doubles::Record kPolling =
    doubles::logLine(5, "Executor Reset - polling for commands\n");
inline const doubles::Record kSignalledToStop =
    doubles::logLine(5, "Bootforge executor signalled to stop\n");
inline const doubles::Record kStopped =
    doubles::logLine(5, "Executor has been Successfully Stopped\n");
inline const doubles::Record kStatusNotSent =
    doubles::logLine(3, "Sending command status to bootforge failed\n");

/// The text of the Exception that an action throws; a test failure when it throws none.
std::string exceptionOf(const std::function<void()>& action);

/// A process, whoever's child it is. Its number may go to another one when it has ended, so it is
/// held by a pidfd.
class Process {
 public:
  explicit Process(pid_t number);
  pid_t number() const { return number_; }
  /// False when it has not ended in time.
  bool waitForEnd() const;
  /// Ends it at once and waits until it is gone.
  void kill() const;

 private:
  pid_t number_;
  UniqueFd handle_;  // none when it had ended before
};

/// What is under test: the one client of this process.
inline HypcliExecutor& client() { return HypcliExecutor::instance(); }

/// All lines of the log, in order.
std::vector<doubles::Record> logRecords();

/// Starts each test without an executor process, and ends those that the test leaves.
class ExecutorTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Starts an executor and waits until it polls.
  static const Process& startExecutor();
  /// The processes that have polled for commands since the test began, the newest last.
  static const std::deque<Process>& executors();

 private:
  static inline std::deque<Process> executors_;
};

/// A stand-in for the executor process: a listening control socket, served by a thread.
class FakeExecutor {
 public:
  /// Serves connections in turn, each with one of `scripts`; then the socket stays open, unserved.
  explicit FakeExecutor(std::vector<std::function<void(const UniqueFd&)>> scripts);
  ~FakeExecutor();
  /// Waits until all scripts have run; what they captured may be read then.
  void finish();

 private:
  UniqueFd listener_;
  std::thread thread_;
};

/// Threads that may restart the executor. An exception that leaves one is a test failure.
class Workers {
 public:
  Workers() = default;
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;
  ~Workers();
  void add(int count, const std::function<void()>& work);
  void join();

 private:
  std::vector<std::thread> threads_;
};

/// A client that speaks to the executor by itself.
class RawClient {
 public:
  RawClient();
  void send(const std::string& bytes);
  /// As send(), where the server may have closed already, and nothing is taken.
  void trySend(const std::string& bytes) const;
  /// The next status, waiting for it; a test failure when the stream has ended.
  int status();
  /// Whether the stream has ended, waiting for something to come.
  bool ended();
  void close() { connection_.reset(); }

 private:
  UniqueFd connection_;
};

/// Sends one request by itself and returns the status.
int statusOf(const std::string& request);

/// Everything that one recv(2) gives.
std::string receive(const UniqueFd& connection);

}  // namespace bootforge
