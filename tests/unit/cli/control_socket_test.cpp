#include "cli/control_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstddef>

namespace bootforge {
namespace {

TEST(ControlSocket, StandsAtItsPath) {
  EXPECT_STREQ(kControlSocketPath, "/var/run/nimbus/bootforgeExecutor.sock");
}

TEST(ControlSocket, IsBoundAtItsPath) {
  const UniqueFd socket = makeControlSocket();
  ASSERT_EQ(bindControlSocket(socket), 0);
  sockaddr_un bound{};
  socklen_t length = sizeof bound;
  ASSERT_EQ(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(bound.sun_family, AF_UNIX);
  EXPECT_STREQ(bound.sun_path, kControlSocketPath);
}

TEST(ControlSocket, IsAStreamSocketThatIsClosedByExec) {
  const UniqueFd socket = makeControlSocket();
  int type = 0;
  socklen_t length = sizeof type;
  ASSERT_EQ(::getsockopt(socket.get(), SOL_SOCKET, SO_TYPE, &type, &length), 0);
  EXPECT_EQ(type, SOCK_STREAM);
  EXPECT_EQ(::fcntl(socket.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(ControlSocket, StopIsKnownInAnyCaseAndByItsBeginning) {
  for (const char* request : {"stop", "STOP", "Stop", "sToP", "stopper", "stop the network"}) {
    EXPECT_TRUE(isStopRequest(request)) << request;
  }
}

TEST(ControlSocket, EverythingElseIsACommand) {
  for (const char* request : {"", "s", "sto", "st op", " stop", "network stop", "start"}) {
    EXPECT_FALSE(isStopRequest(request)) << request;
  }
}

TEST(ControlSocket, AStatusHasFourBytesAndARequestAtMost1023) {
  EXPECT_EQ(sizeof(CommandStatus), std::size_t{4});
  EXPECT_EQ(kRequestLimit, std::size_t{1023});
}

}  // namespace
}  // namespace bootforge
