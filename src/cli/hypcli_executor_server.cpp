// The executor process's end.
//
// The process is forked from the orchestrator, perhaps while other threads run there and by a
// worker that holds the graph lock. It never execs, so it may use nothing that another thread can
// have had locked at the fork: of the program it uses this folder, and of the rest the log and the
// C library's allocator, whose locks are held across a fork.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "cli/control_socket.h"
#include "cli/hypcli_executor.h"
#include "cli/request_handler.h"
#include "platform/log.h"
#include "platform/poll.h"
#include "util/child_process.h"
#include "util/exception.h"
#include "util/standard_streams.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

constexpr const char* kOutputFile = "/var/log/bootforge-hypcli-stdout.log";
constexpr const char* kProcessName = "bootforge-cli";
constexpr int kBacklog = 16;
constexpr int kAcceptPauseMilliseconds = 100;

// What the poll loop is told about the listening socket.
constexpr int kClassSet = 1;
constexpr int kPollFlags = 0x15;
constexpr int kEventType = 2;

/// Ends the poll loop; written and read on its thread.
bool stopRequested = false;

/// Holds a descriptor for the one connection that is served, for when all others are taken: who has
/// connected waits for an answer, and would for ever. On the loop's thread.
UniqueFd reserve;

void keepReserve() {
  if (!reserve) reserve = makeControlSocket();
}

UniqueFd acceptConnection(int listener) {
  return UniqueFd(
      retryInterrupted([&] { return ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); }));
}

/// Serves one connection. Returns true for a request to stop.
bool serveConnection(const UniqueFd& connection) {
  if (isPeerOurs(connection)) return handleRequest(connection);
  const int error = errno;
  Log_Level(3, "Refused a connection on the control socket - %s\n", systemErrorText(error).c_str());
  return false;
}

/// Who connects from now on finds nobody and starts an executor for itself; those who have
/// connected already are served. The listening socket would take connections until it is closed,
/// and nobody would ever answer them.
void refuseConnections(int listener, UniqueFd stopper) {
  if (::shutdown(listener, SHUT_RDWR) != 0) return;
  stopper.reset();  // and this is what it waits for
  while (const UniqueFd connection = acceptConnection(listener)) serveConnection(connection);
}

/// Accepts and serves one connection; `clientData` points to the listening descriptor.
void handleConnection(void* clientData) {
  const int listener = *static_cast<int*>(clientData);
  UniqueFd connection = acceptConnection(listener);
  if (!connection) {
    const int error = errno;
    Log_Level(3, "Error accepting connection on contol socket - %s\n\n",
              systemErrorText(error).c_str());
    reserve.reset();
    if (error == EMFILE) connection = acceptConnection(listener);
  }
  if (!connection) {
    // The connection goes on waiting, so the loop comes back at once. Out of memory that would do
    // nothing but fill the disk with this line.
    ::poll(nullptr, 0, kAcceptPauseMilliseconds);
    keepReserve();
    return;
  }
  if (!serveConnection(connection)) {
    connection.reset();
    keepReserve();
    return;
  }
  stopRequested = true;
  Poll_NotifyChange(kClassSet);
  Poll_CallbackRemove(kClassSet, kPollFlags, &handleConnection, clientData, kEventType);
  refuseConnections(listener, std::move(connection));
}

/// The body of the event-loop thread; `argument` points to the listening socket.
void* runEventLoop(void* argument) {
  int listener = static_cast<const UniqueFd*>(argument)->get();
  keepReserve();
  Poll_InitDefault();
  if (Poll_Callback(kClassSet, kPollFlags, &handleConnection, &listener, kEventType, listener,
                    nullptr) != 0) {
    Log_Level(2, "Failed setting up Poll Loop for executor\n");
    return nullptr;
  }
  Poll_Loop(kClassSet, &stopRequested, 0);
  return nullptr;
}

/// Removes the name of a socket that nobody listens on: names outlive their sockets here, and would
/// make every later bind fail. Whatever else has the name keeps it.
void removeStaleSocket() {
  struct stat status {};
  if (::lstat(kControlSocketPath, &status) != 0 || !S_ISSOCK(status.st_mode)) return;
  const UniqueFd probe = makeControlSocket(SOCK_NONBLOCK);
  if (!probe || connectControlSocket(probe) == 0 || errno != ECONNREFUSED) return;
  ::unlink(kControlSocketPath);
}

/// Binds so that only the owner of this process can connect. Returns 0 or an errno value. The umask
/// is the whole process's, which has one thread here.
int bindForOwner(const UniqueFd& socket) {
  const mode_t saved = ::umask(S_IRWXG | S_IRWXO);
  const int error = bindControlSocket(socket) == 0 ? 0 : errno;
  ::umask(saved);
  return error;
}

/// Gives a descriptor the first number behind the standard streams, whoever has that. None for -1.
UniqueFd moveToFront(int fd) {
  constexpr int kFront = STDERR_FILENO + 1;
  return UniqueFd(fd == kFront ? fd : ::dup3(fd, kFront, O_CLOEXEC));
}

}  // namespace

void HypcliExecutor::runChild(int startLock) noexcept {
  try {
    ::prctl(PR_SET_NAME, kProcessName);
    resetSignals();
    // A peer that is gone shall be an error of send(2) here, too.
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);  // and a file at the limit of sizes one of write(2)
    // The descriptors are the orchestrator's: connections of its other workers among them, which
    // would not end for their peers while this process had them open.
    Log_Detach();
    startLock_ = moveToFront(startLock);
    closeOtherDescriptors(startLock_ ? startLock_.get() + 1 : STDERR_FILENO + 1);
    serve();
    ::_exit(0);
  } catch (const Exception& failure) {
    Log_Level(2, "Unable to start executor: %s\n", failure.what());
  } catch (...) {
    Log_Level(2, "Unable to start executor\n");
  }
  ::_exit(-1);
}

void HypcliExecutor::serve() {
  redirectStandardStreams(kOutputFile);
  openControlSocket();
  startLock_.reset();
  if (::daemon(0, 1) == -1) throw Exception("Failed to daemonize");
  startEventLoop();
  Log_Level(5, "Executor Reset - polling for commands\n");
  pthread_join(eventLoopThread_, nullptr);
  listener_.reset();
}

void HypcliExecutor::openControlSocket() {
  listener_ = makeControlSocket();
  int error = errno;
  if (!listener_) {
    throw Exception("Error opening control socket for executor: " + systemErrorText(error));
  }
  removeStaleSocket();
  error = bindForOwner(listener_);
  if (error != 0) {
    listener_.reset();
    throw Exception("Failed to bind to executor control socket: " + systemErrorText(error));
  }
  if (::listen(listener_.get(), kBacklog) == -1) {
    error = errno;
    listener_.reset();
    throw Exception("Failed to listen on executor control socket: " + systemErrorText(error));
  }
}

void HypcliExecutor::startEventLoop() {
  if (pthread_create(&eventLoopThread_, nullptr, &runEventLoop, &listener_) != 0) {
    throw Exception("Failed creating Executor Event Loop thread");
  }
}

}  // namespace bootforge
