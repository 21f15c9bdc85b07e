#include "platform/linux/outlet.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <ctime>
#include <string>
#include <thread>

#include "tests/support/pseudo_terminal.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace host_linux {
namespace {

using bootforge::test::beforePoll;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

/// Far more than a terminal holds.
constexpr std::size_t kLong = 1 << 18;

class TerminalOutlet : public bootforge::test::PseudoTerminal {
 protected:
  void TearDown() override {
    beforePoll = nullptr;
    PseudoTerminal::TearDown();
  }

  /// Reads what is shown until the terminal takes more.
  void makeRoom() const {
    constexpr timespec kNow{};
    std::string part(1024, '\0');
    for (pollfd room{terminal_, POLLOUT, 0}; ::ppoll(&room, 1, &kNow, nullptr) == 0;) {
      ASSERT_GT(::read(master_, part.data(), part.size()), 0);
    }
  }
};

TEST_F(TerminalOutlet, ATerminalThatHasTakenAPartIsWaitedForAgain) {
  beforePoll = [this](int) { makeRoom(); };
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, std::string(kLong, 'x'), seconds(30), &begun),
            Delivery::kDone);
  EXPECT_TRUE(begun);
}

TEST_F(TerminalOutlet, EachPartThatATerminalTakesGivesItAllOfItsTimeAgain) {
  constexpr milliseconds kPatience = seconds(30);
  int waits = 0;
  Clock::time_point roomMade;
  milliseconds second{};
  milliseconds leastOfSecond{};
  beforePoll = [&](int timeout) {
    const auto full = Clock::now();
    if (++waits == 1) {  // time passes; the next wait follows a part that was taken after it
      while (Clock::now() - full < milliseconds(100)) std::this_thread::yield();
      roomMade = Clock::now();
    } else if (waits == 2) {
      second = milliseconds(timeout);
      leastOfSecond = std::chrono::floor<milliseconds>(kPatience - (full - roomMade));
    }
    makeRoom();
  };
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, std::string(kLong, 'x'), kPatience, &begun),
            Delivery::kDone);
  ASSERT_GE(waits, 2);
  EXPECT_GE(second, leastOfSecond);
  EXPECT_LE(second, kPatience);
}

TEST_F(TerminalOutlet, ATerminalThatIsFullIsGivenUp) {
  const std::string text(kLong, 'x');
  bool begun = false;
  EXPECT_EQ(writeToTerminal(terminal_, text, milliseconds(1), &begun), Delivery::kNoRoom);
  EXPECT_TRUE(begun);
  // The kernel carries what was written to the other end at its own pace, which makes room again a
  // few times at most.
  for (int round = 0; begun && round < 100; ++round) {
    EXPECT_EQ(writeToTerminal(terminal_, text, milliseconds(1), &begun), Delivery::kNoRoom);
  }
  EXPECT_FALSE(begun);
}

}  // namespace
}  // namespace host_linux
