// The syslog daemon's end of /dev/log.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/regex.hpp>
#include <cstring>
#include <string>

namespace bootforge::test {

class Syslog : public testing::Test {
 protected:
  void SetUp() override {
    socket_ = listenAtDevLog(SOCK_DGRAM);
    ASSERT_GE(socket_, 0);
  }
  void TearDown() override { close(socket_); }

  static int listenAtDevLog(int type) {
    int made = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    if (bind(made, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return -1;
    return made;
  }

  /// The next message; empty when there is none.
  std::string nextAsItIs() const {
    std::string text(300'000, '\0');
    ssize_t count = recv(socket_, text.data(), text.size(), MSG_DONTWAIT);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
  }

  /// The next message, its time and process id replaced; empty when there is none.
  std::string next() const { return masked(nextAsItIs()); }

  static std::string masked(const std::string& text) {
    std::string timeless = boost::regex_replace(
        text, boost::regex("^(<\\d+>)\\w{3} [ \\d]\\d \\d\\d:\\d\\d:\\d\\d "), "$1TIME ");
    return boost::regex_replace(timeless, boost::regex("\\[[0-9]+\\]"), "[PID]");
  }

  int socket_ = -1;
};

}  // namespace bootforge::test
