#include "cli/control_socket.h"

#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include "util/system_error.h"

namespace bootforge {
namespace {

static_assert(sizeof(sockaddr_un) == 110);

sockaddr_un controlSocketAddress() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  static_assert(sizeof address.sun_path > std::string_view(kControlSocketPath).size());
  std::string_view(kControlSocketPath).copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

}  // namespace

bool isStopRequest(const char* request) {
  return ::strncasecmp(request, kStopRequest.data(), kStopRequest.size()) == 0;
}

UniqueFd makeControlSocket(int flags) {
  return UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

int connectControlSocket(const UniqueFd& socket) {
  const sockaddr_un address = controlSocketAddress();
  return retryInterrupted([&] {
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  });
}

int bindControlSocket(const UniqueFd& socket) {
  const sockaddr_un address = controlSocketAddress();
  return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

bool isPeerOurs(const UniqueFd& connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  if (peer.uid == ::geteuid()) return true;
  errno = EPERM;
  return false;
}

}  // namespace bootforge
