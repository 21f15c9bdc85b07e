// The orchestrator's end.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "cli/control_socket.h"
#include "cli/hypcli_executor.h"
#include "platform/log.h"
#include "util/exception.h"
#include "util/graph_lock.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

constexpr int kConnectAttempts = 10;

/// connectToExecutor with further type flags for the socket.
UniqueFd openConnection(int flags, bool reportFailure) {
  UniqueFd connection = makeControlSocket(flags);
  int error = errno;
  if (!connection) {
    Log_Level(2, "Failed creating bootforge client socket %s\n", systemErrorText(error).c_str());
  } else if (connectControlSocket(connection) != 0 || !isPeerOurs(connection)) {
    error = errno;
    if (reportFailure) {
      Log_Level(2, "Failed connecting to executor %s\n", systemErrorText(error).c_str());
    }
    connection.reset();
  }
  errno = error;
  return connection;
}

/// Held from the look for an executor until the new one listens, by the new one as well: its
/// starter may be killed meanwhile. Without it, the second of two runs that start at once would
/// take the socket of the first for a stale one, between bind(2) and listen(2). Where the lock
/// cannot be had, the executor is started without it.
class StartLock {
 public:
  StartLock() {
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    UniqueFd file(::open(kStartLockPath, kFlags, 0600));
    // Missing standard streams stay missing, which isConnected() looks at.
    if (file) file.reset(::fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (file && retryInterrupted([&] { return ::flock(file.get(), LOCK_EX); }) == 0) {
      file_ = std::move(file);
    } else if (errno != ENOENT) {  // without the folder there will be no socket, which is told
      Log_Level(3, "Unable to lock %s: %s\n", kStartLockPath, systemErrorText(errno).c_str());
    }
  }

  /// The locked file, -1 for none. Who inherits it holds the lock, too.
  int descriptor() const { return file_.get(); }

 private:
  UniqueFd file_;  // the lock is gone when it is closed, here and in the executor
};

/// Descriptor 0 is never taken for a connection: it is what a missing standard input leaves behind.
bool isConnected(const UniqueFd& connection) { return connection.get() >= 1; }

}  // namespace

HypcliExecutor::HypcliExecutor() {
  // A peer that is gone shall be an error of send(2), here and in the executors.
  if (::signal(SIGPIPE, SIG_IGN) == SIG_ERR) Log_Level(3, "Bootforge cannot ignore SIGPIPE\n");
}

HypcliExecutor& HypcliExecutor::instance() {
  static const std::shared_ptr<HypcliExecutor> executor(new HypcliExecutor);
  return *executor;
}

UniqueFd HypcliExecutor::connectToExecutor(bool reportFailure) {
  return openConnection(0, reportFailure);
}

bool HypcliExecutor::isServing() {
  // An executor that is busy with a full backlog would make a connect wait, here under the graph
  // lock. It is serving.
  const UniqueFd connection = openConnection(SOCK_NONBLOCK, false);
  return isConnected(connection) || (!connection && errno == EAGAIN);
}

void HypcliExecutor::start() {
  const StartLock lock;
  if (isServing()) return;
  Log_Level(5, "Setting up Executor - Reset Requested\n");
  const pid_t child = ::fork();
  if (child == -1) throw Exception("Failed to fork" + systemErrorText(errno));
  if (child == 0) runChild(lock.descriptor());
  int status = 0;
  if (retryInterrupted([&] { return ::waitpid(child, &status, 0); }) == -1) {
    throw Exception("Failed collecting executor's exit status");
  }
  if (status != 0) throw Exception("Bootforge executor failed to start");
}

UniqueFd HypcliExecutor::connectWithRestarts() {
  int error = 0;
  for (int attempt = 0; attempt < kConnectAttempts; ++attempt) {
    UniqueFd connection = connectToExecutor(true);
    error = errno;
    if (isConnected(connection)) return connection;
    connection.reset();
    const ScopedLock lock(graphLock);
    try {
      start();
    } catch (const Exception& failure) {
      Log_Level(2, "Resetting Executor failed, retrying: %s\n", failure.what());
    } catch (...) {
      Log_Level(2, "Resetting Executor failed, retrying\n");
    }
  }
  throw Exception("Could not connect to Executor:" + systemErrorText(error));
}

void HypcliExecutor::runCommand(const std::string& commandLine) {
  const std::string failure = "Executor failed executing hypcli command: " + commandLine;
  const std::size_t length = std::strlen(commandLine.c_str());
  // Nothing would be sent, and both sides would wait for the other.
  if (length == 0) throw Exception(failure);

  const UniqueFd connection = connectWithRestarts();
  if (retryInterrupted([&] { return ::send(connection.get(), commandLine.c_str(), length, 0); }) ==
      -1) {
    throw Exception("Failed sending command to executor: " + systemErrorText(errno));
  }
  CommandStatus status = 0;
  const ssize_t count =
      retryInterrupted([&] { return ::recv(connection.get(), &status, sizeof status, 0); });
  if (count <= 0) {
    throw Exception("Failed to recieve command status from Executor: " + systemErrorText(errno));
  }
  if (status != 0) throw Exception(failure);
}

void HypcliExecutor::stop() {
  UniqueFd connection = connectToExecutor(false);
  if (!connection) {
    Log_Level(5, "Executor already gone.\n");
    return;
  }
  if (retryInterrupted([&] {
        return ::send(connection.get(), kStopRequest.data(), kStopRequest.size(), 0);
      }) == -1) {
    throw Exception("Failed sending STOP to executor" + systemErrorText(errno));
  }
  CommandStatus answer = 0;
  const ssize_t count =
      retryInterrupted([&] { return ::recv(connection.get(), &answer, sizeof answer, 0); });
  if (count <= 0) Log_Level(5, "Executor has been Successfully Stopped\n");
  // The executor is not waited for; its last connection stays until this process exits.
  connection.release();
}

}  // namespace bootforge
