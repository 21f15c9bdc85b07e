// The CLI executor: a process of its own that runs management-CLI commands, one at a time, for the
// orchestrator.
//
// One class holds both ends. start(), runCommand(), stop() and connectToExecutor() work in the
// orchestrator (hypcli_executor_client.cpp); everything else works in the process that start()
// forks (hypcli_executor_server.cpp), which is called "bootforge-cli" in a list of processes. They
// meet at the control socket (control_socket.h).
//
// The executor process is absent until start() forks it, starting until it has gone into the
// background (a failure there leaves it absent), then serving, and after a request to stop or by
// any accident absent again. Whoever finds it absent starts another.
#pragma once

#include <pthread.h>

#include <memory>
#include <string>

#include "util/unique_fd.h"

namespace bootforge {

class HypcliExecutor {
 public:
  HypcliExecutor(const HypcliExecutor&) = delete;
  HypcliExecutor& operator=(const HypcliExecutor&) = delete;
  virtual ~HypcliExecutor() = default;

  /// The one of this process. The first call makes the whole process ignore SIGPIPE, and so the
  /// executors that it forks. Any thread.
  static HypcliExecutor& instance();

  /// Makes sure that an executor is serving the control socket: returns at once when one answers,
  /// else forks one, and returns when its socket takes connections. Throws Exception. With several
  /// threads, under the graph lock.
  void start();

  /// Runs one command line in the executor and returns when it has succeeded; otherwise throws
  /// Exception. Restarts an executor that cannot be reached, under the graph lock, up to ten times.
  /// Any thread, several at once; the lock must not be held.
  void runCommand(const std::string& commandLine);

  /// Asks the executor to end, and returns when it has taken notice, not when it has ended; it may
  /// first have commands to finish. Throws Exception when it could not be told.
  void stop();

  /// A new connection to the executor, or no descriptor and the errno of the call that failed. A
  /// failing connect is logged when `reportFailure` says so, a failing socket always.
  UniqueFd connectToExecutor(bool reportFailure);

 private:
  HypcliExecutor();

  bool isServing();
  UniqueFd connectWithRestarts();

  [[noreturn]] void runChild(int startLock) noexcept;
  void serve();
  void openControlSocket();
  void startEventLoop();

  // Used in the executor process only.
  UniqueFd listener_;
  UniqueFd startLock_;  // until it listens: its starter may be gone by then
  pthread_t eventLoopThread_ = static_cast<pthread_t>(-1);
};

}  // namespace bootforge
