#include "platform/linux/outlet.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "tests/unit/platform/pseudo_terminal.h"

namespace host_linux {
namespace {

using std::chrono::seconds;

class TerminalOutlet : public bootforge::test::PseudoTerminal {};

TEST_F(TerminalOutlet, ATerminalThatHasTakenAPartIsWaitedForAgain) {
  const std::string text(1 << 18, 'x');  // far more than a terminal holds
  std::atomic<bool> isDone = false;
  std::thread reader([this, &isDone, left = text.size()]() mutable {
    std::string part(1024, '\0');
    while (left > 0 && !isDone) {
      pollfd readable{master_, POLLIN, 0};
      if (::poll(&readable, 1, 50) <= 0) continue;
      const ssize_t count = ::read(master_, part.data(), part.size());
      if (count <= 0) return;
      left -= static_cast<std::size_t>(count);
    }
  });
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, text, seconds(30), &begun), Delivery::kDone);
  EXPECT_TRUE(begun);
  isDone = true;
  reader.join();
}

TEST_F(TerminalOutlet, ATerminalThatIsFullIsGivenUp) {
  const std::string text(1 << 18, 'x');
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, text, std::chrono::milliseconds(1), &begun),
            Delivery::kNoRoom);
  EXPECT_TRUE(begun);
  EXPECT_EQ(writeToTerminal(terminal_, text, std::chrono::milliseconds(1), &begun),
            Delivery::kNoRoom);
  EXPECT_FALSE(begun);
}

}  // namespace
}  // namespace host_linux
