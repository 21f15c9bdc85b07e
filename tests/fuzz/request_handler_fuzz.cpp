// Any bytes as a request on the control socket: each ends in exactly one of a stop without a reply
// and one command with its status. Which commands fail is decided by the bytes as well.
#include <fcntl.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli/request_handler.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "util/unique_fd.h"

namespace {

namespace doubles = bootforge::doubles;
using bootforge::UniqueFd;

constexpr std::size_t kLimit = 1023;  // what the server reads of a request

void require(bool condition) {
  if (!condition) std::abort();
}

/// What the server is to take for the command line.
std::string commandLineIn(const std::string& bytes) {
  const std::string read = bytes.substr(0, kLimit);
  return read.substr(0, read.find('\0'));
}

/// Plans the outcome of a command line; true when it is to succeed.
bool plan(const std::string& commandLine) {
  doubles::reset();
  doubles::Parse parse;
  parse.path = {"command"};
  parse.parameters = {{"text", commandLine}};
  switch (commandLine.size() % 5) {
    case 0:
      parse.succeeds = false;
      parse.errors = {"cannot be parsed"};
      break;
    case 1:
      doubles::script().commands["command"] = doubles::failsWith({"failed"});
      break;
    case 2:
      doubles::script().commands["command"] = doubles::commandThrowsOther();
      break;
    default:
      break;
  }
  doubles::script().parses[commandLine] = parse;
  return commandLine.size() % 5 > 2;
}

/// How often this very command line was executed.
std::ptrdiff_t executions(const std::string& commandLine) {
  const std::vector<doubles::Record> all = doubles::records();
  return std::count(all.begin(), all.end(),
                    doubles::cli("ExecuteCommand bootforge: command --text=" + commandLine));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ::signal(SIGPIPE, SIG_IGN);  // as the server has it
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  if (bytes.empty()) {
    require(!bootforge::handleRequest(UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC))));
  }
  int ends[2];
  require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
  UniqueFd client(ends[0]);
  UniqueFd server(ends[1]);
  if (!bytes.empty()) {
    const ssize_t sent = ::send(client.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (sent != static_cast<ssize_t>(bytes.size())) return 0;  // more than a socket holds
  }
  // Of some the client does not wait for the status.
  const bool isGone = bytes.starts_with('\n');
  if (isGone) {
    client.reset();
  } else {
    require(::shutdown(client.get(), SHUT_WR) == 0);
  }

  const std::string commandLine = commandLineIn(bytes);
  const bool success = plan(commandLine);
  const bool stops = commandLine.size() >= 4 && ::strncasecmp(commandLine.data(), "stop", 4) == 0;
  require(bootforge::handleRequest(server) == stops);
  server.reset();
  if (isGone) return 0;

  char reply[8];
  const ssize_t count = ::recv(client.get(), reply, sizeof reply, MSG_WAITALL);
  if (stops) {
    require(count <= 0 && executions(commandLine) == 0);
    return 0;
  }
  std::int32_t status = -1;
  require(count == static_cast<ssize_t>(sizeof status));
  std::copy_n(reply, sizeof status, reinterpret_cast<char*>(&status));
  require(status == (success ? 0 : 1));
  require(executions(commandLine) == (commandLine.size() % 5 == 0 ? 0 : 1));
  return 0;
}
