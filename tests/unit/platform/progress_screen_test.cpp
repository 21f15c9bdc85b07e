#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/hvkctl.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace bootforge::test {
namespace {

using Screen = HvkCtl::System::KernelProgressScreenImpl;

/// A terminal as the console, and what is shown on it.
class ProgressScreen : public PseudoTerminal {
 protected:
  void SetUp() override {
    PseudoTerminal::SetUp();
    if (terminal_ < 0) return;
    ASSERT_EQ(symlink("pts/0", "/dev/console"), 0);
  }

  /// What was shown since the last look, without the terminal's carriage returns.
  std::string shown() const {
    std::string text = PseudoTerminal::shown();
    std::erase(text, '\r');
    return text;
  }
};

TEST_F(ProgressScreen, ShowsStepsProgressAndStatus) {
  runInChild([] {
    Screen screen;
    screen.ProgressText("Activating Bootforge Plugins");
    screen.StatusText("");
    screen.Step();
    screen.StatusText("network");
  });
  EXPECT_EQ(shown(),
            "[0] Activating Bootforge Plugins\n"
            "[1] Activating Bootforge Plugins\n"
            "[1] Activating Bootforge Plugins: network\n");
}

TEST_F(ProgressScreen, IsOneForAllHandles) {
  runInChild([] {
    Screen first;
    first.ProgressText("a");
    {
      Screen second;
      second.Step();
    }
    first.Step();
  });
  EXPECT_EQ(shown(), "[0] a\n[1] a\n[2] a\n");
}

TEST_F(ProgressScreen, ShowsWhatCouldCommandTheTerminalAsBlanks) {
  runInChild([] { Screen().StatusText("a\nb\x1b[2J\x7f\xc3\xa4"); });
  EXPECT_EQ(shown(), "[0] a b [2J \xc3\xa4\n");
}

TEST_F(ProgressScreen, WritesALineAtOnceAlsoFromSeveralThreads) {
  Finished child = runInChild([] {
    writeBehaviour = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([] {
        Screen screen;
        for (int step = 0; step < 5; ++step) screen.Step();
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(writeBehaviour.calls, 20);
  });
  EXPECT_EQ(child.status, 0) << child.out;
  std::string expected;
  for (int step = 1; step <= 20; ++step) expected += "[" + std::to_string(step) + "] \n";
  EXPECT_EQ(shown(), expected);
}

TEST_F(ProgressScreen, NeverWaitsForATerminalThatTakesNothing) {
  Finished child = runInChild([this] {
    ASSERT_EQ(tcflow(terminal_, TCOOFF), 0);  // as after control-S
    Screen screen;
    for (int i = 0; i < 5000; ++i) screen.Step();
    ASSERT_EQ(tcflow(terminal_, TCOON), 0);
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST(ProgressScreenWithoutConsole, IsQuietAndKeepsErrno) {
  int before = countOpenDescriptors();
  Screen screen;
  errno = ENOTTY;
  screen.ProgressText("text");
  screen.StatusText("text");
  screen.Step();
  EXPECT_EQ(errno, ENOTTY);
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST(ProgressScreenWithoutConsole, LeavesAFileInItsPlaceAlone) {
  writeFile("/dev/console", "content");
  Screen().Step();
  EXPECT_EQ(readFile("/dev/console"), "content");
}

TEST(ProgressScreenWithoutConsole, DoesNotWaitForTheReaderOfAFifo) {
  ASSERT_EQ(mkfifo("/dev/console", 0600), 0);
  Screen().Step();
}

}  // namespace
}  // namespace bootforge::test
