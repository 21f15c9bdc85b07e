#include "bench/bare_executor.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>

namespace bootforge::bench {
namespace {

constexpr const char* kStop = "stop";

sockaddr_un addressOf(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  return address;
}

std::int32_t runTrue() {
  char program[] = "/bin/true";
  char* words[] = {program, nullptr};
  char* environment[] = {nullptr};
  pid_t child = 0;
  if (::posix_spawn(&child, program, nullptr, nullptr, words, environment) != 0) return 1;
  int status = 0;
  return ::waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
}

[[noreturn]] void serve(int listener, Request kind) {
  for (;;) {
    const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection == -1) ::_exit(1);
    char request[1024];
    const ssize_t count = ::recv(connection, request, sizeof request - 1, 0);
    if (count <= 0) ::_exit(1);
    request[count] = '\0';
    if (std::strcmp(request, kStop) == 0) ::_exit(0);
    const std::int32_t status = kind == Request::kRunTrue ? runTrue() : 0;
    if (::send(connection, &status, sizeof status, 0) != sizeof status) ::_exit(1);
    ::close(connection);
  }
}

/// A descriptor whose request has been sent, or -1.
int sendRequest(const char* path, const char* request) {
  const sockaddr_un address = addressOf(path);
  const int connection = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connection == -1) return -1;
  const std::size_t length = std::strlen(request);
  if (::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      ::send(connection, request, length, 0) == static_cast<ssize_t>(length)) {
    return connection;
  }
  ::close(connection);
  return -1;
}

}  // namespace

bool startBareExecutor(const char* path, Request request) {
  ::unlink(path);
  const sockaddr_un address = addressOf(path);
  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener == -1 ||
      ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener, 16) != 0) {
    return false;
  }
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    serve(listener, request);
  }
  ::close(listener);
  return child != -1;
}

void stopBareExecutor(const char* path) { ::close(sendRequest(path, kStop)); }

bool bareExchange(const char* path, const char* request) {
  const int connection = sendRequest(path, request);
  if (connection == -1) return false;
  std::int32_t status = 1;
  const bool answered = ::recv(connection, &status, sizeof status, 0) == sizeof status;
  ::close(connection);
  return answered;
}

}  // namespace bootforge::bench
