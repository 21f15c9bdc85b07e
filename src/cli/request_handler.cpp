#include "cli/request_handler.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

#include "cli/command_execution.h"
#include "cli/control_socket.h"
#include "platform/log.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

CommandStatus execute(const char* commandLine) {
  try {
    executeCommandText(commandLine);
    return 0;
  } catch (...) {
    // The reasons were logged where they arose; the orchestrator logs the failure.
    return 1;
  }
}

}  // namespace

bool handleRequest(const UniqueFd& connection) {
  // A client that says nothing would hold up everybody else.
  const timeval patience{kRequestSeconds, 0};
  ::setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  char request[kRequestLimit + 1];
  const ssize_t count =
      retryInterrupted([&] { return ::recv(connection.get(), request, kRequestLimit, 0); });
  if (count == -1) {
    const int error = errno;
    Log_Level(3, "Failed to read message from socket - %s\n\n", systemErrorText(error).c_str());
    return false;
  }
  request[count] = '\0';

  if (isStopRequest(request)) {
    Log_Level(5, "Bootforge executor signalled to stop\n");
    return true;
  }

  const CommandStatus status = execute(request);
  if (retryInterrupted([&] { return ::send(connection.get(), &status, sizeof status, 0); }) == -1) {
    Log_Level(3, "Sending command status to bootforge failed\n");
  }
  return false;
}

}  // namespace bootforge
