#include "platform/linux/outlet.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>

#include "tests/support/pseudo_terminal.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace host_linux {
namespace {

using bootforge::test::longestPoll;
using bootforge::test::pollCalls;
using std::chrono::milliseconds;
using std::chrono::seconds;

class TerminalOutlet : public bootforge::test::PseudoTerminal {
 protected:
  /// Reads what is shown, until that is so much or nobody writes any longer.
  void readUntil(std::size_t left, const std::atomic<bool>& isDone) const {
    std::string part(1024, '\0');
    while (left > 0 && !isDone) {
      pollfd readable{master_, POLLIN, 0};
      if (::poll(&readable, 1, 50) <= 0) continue;
      const ssize_t count = ::read(master_, part.data(), part.size());
      if (count <= 0) return;
      left -= static_cast<std::size_t>(count);
    }
  }
};

TEST_F(TerminalOutlet, ATerminalThatHasTakenAPartIsWaitedForAgain) {
  const std::string text(1 << 18, 'x');  // far more than a terminal holds
  std::atomic<bool> isDone = false;
  std::thread reader([&, this] { readUntil(text.size(), isDone); });
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, text, seconds(30), &begun), Delivery::kDone);
  EXPECT_TRUE(begun);
  isDone = true;
  reader.join();
}

TEST_F(TerminalOutlet, EachPartThatATerminalTakesGivesItAllOfItsTimeAgain) {
  constexpr milliseconds kPatience = seconds(30);
  constexpr milliseconds kPassed(100);
  const std::string text(1 << 18, 'x');
  std::atomic<bool> isDone = false;
  pollCalls = 0;
  std::thread reader([&, this] {
    while (pollCalls == 0 && !isDone) std::this_thread::yield();
    // Time passes while the terminal is full. What is waited from then on follows a part.
    const auto full = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - full < kPassed) std::this_thread::yield();
    longestPoll = 0;
    readUntil(text.size(), isDone);
  });
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, text, kPatience, &begun), Delivery::kDone);
  isDone = true;
  reader.join();
  EXPECT_GT(longestPoll, (kPatience - kPassed).count());
  EXPECT_LE(longestPoll, kPatience.count());
}

TEST_F(TerminalOutlet, ATerminalThatIsFullIsGivenUp) {
  const std::string text(1 << 18, 'x');
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, text, milliseconds(1), &begun), Delivery::kNoRoom);
  EXPECT_TRUE(begun);
  EXPECT_EQ(writeToTerminal(terminal_, text, milliseconds(1), &begun), Delivery::kNoRoom);
  EXPECT_FALSE(begun);
}

}  // namespace
}  // namespace host_linux
