// Readers of the log that stop reading: nobody holds the program up for ever, and what was lost is
// told.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "platform/dictionary.h"
#include "platform/log.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/syslog_fixture.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace bootforge::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

template <typename Work>
milliseconds durationOf(Work work) {
  auto start = steady_clock::now();
  work();
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

std::string lost(int count) { return std::to_string(count) + " messages were lost"; }

class HungSyslog : public Syslog {
 protected:
  /// More messages than any host's queue of a socket has room for.
  static constexpr int kMany = 2000;

  static void logMany() {
    for (int i = 0; i < kMany; ++i) Log_Level(5, "%d", i);
  }

  /// Reads everything; the number of messages.
  int drain() const {
    int count = 0;
    while (!nextAsItIs().empty()) ++count;
    return count;
  }
};

TEST_F(HungSyslog, HoldsOneMessageUpForATenthOfASecondAndNoOther) {
  Finished child = runInChild([this] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    milliseconds took = durationOf(logMany);
    EXPECT_GE(took.count(), 100);
    EXPECT_LT(took.count(), 1000);
    EXPECT_LT(drain(), kMany);
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(HungSyslog, IsToldHowMuchItMissedBeforeTheNextMessage) {
  Finished child = runInChild([this] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    logMany();
    int missed = kMany - drain();
    Log_Level(5, "back");
    EXPECT_EQ(next(), "<28>TIME bootforge[PID]: " + lost(missed));
    EXPECT_EQ(next(), "<30>TIME bootforge[PID]: back");
    Log_Level(5, "again");
    EXPECT_EQ(next(), "<30>TIME bootforge[PID]: again");
    EXPECT_EQ(next(), "");
    // Now that it listens again, it is waited for again.
    EXPECT_GE(durationOf(logMany).count(), 100);
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(HungSyslog, LosesNothingOfADaemonThatIsOnlySlow) {
  Finished child = runInChild([this] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    logMany();
    drain();
    // Full again, but for nobody who had to wait: what follows is waited for.
    Log_Level(5, "told of what was lost");
    int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    ASSERT_EQ(connect(sender, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    while (send(sender, "full", 4, 0) == 4) {
    }
    close(sender);
    pollCalls = 0;
    std::string last;
    std::thread daemon([&] {
      EXPECT_TRUE(waitUntil([] { return pollCalls > 0; }));
      for (std::string text = next(); !text.empty(); text = next()) last = text;
    });
    milliseconds took = durationOf([] { Log_Level(5, "text"); });
    daemon.join();
    for (std::string text = next(); !text.empty(); text = next()) last = text;
    // On a busy machine the daemon may have come too late.
    if (took < milliseconds(100)) {
      EXPECT_EQ(last, "<30>TIME bootforge[PID]: text");
    }
    EXPECT_GT(pollCalls, 0);
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(HungSyslog, IsLeftForTheOneThatTookItsPlace) {
  Finished child = runInChild([this] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    logMany();
    ASSERT_EQ(unlink("/dev/log"), 0);
    socket_ = listenAtDevLog(SOCK_DGRAM);  // the old one is open and full
    ASSERT_GE(socket_, 0);
    Log_Level(5, "to the new one");
    EXPECT_TRUE(next().ends_with(" messages were lost"));
    EXPECT_EQ(next(), "<30>TIME bootforge[PID]: to the new one");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(HungSyslog, IsNotToldTwiceWhenTheProcessForksMeanwhile) {
  Finished child = runInChild([this] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    logMany();
    int missed = kMany - drain();
    pid_t forked = fork();
    if (forked == 0) {
      Log_Level(5, "from the child");
      _exit(0);
    }
    waitpid(forked, nullptr, 0);
    EXPECT_EQ(next(), "<30>TIME bootforge[PID]: from the child");
    Log_Level(5, "from the parent");
    EXPECT_EQ(next(), "<28>TIME bootforge[PID]: " + lost(missed));
    EXPECT_EQ(next(), "<30>TIME bootforge[PID]: from the parent");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(HungSyslog, LetsTheProcessForkAllTheSame) {
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    std::atomic<bool> done = false;
    std::thread logger([&] {
      while (!done) Log_Level(5, "text");
    });
    for (int i = 0; i < 20; ++i) {
      pid_t forked = fork();
      if (forked == 0) _exit(0);
      EXPECT_EQ(waitpid(forked, nullptr, 0), forked);
    }
    done = true;
    logger.join();
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(Syslog, IsFoundAgainAfterItWasStartedAnew) {
  Finished child = runInChild([this] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    // Sockets of this process alone: what it closes is gone.
    for (const char* text : {"first", "second, none lost between"}) {
      ASSERT_EQ(unlink("/dev/log"), 0);
      socket_ = listenAtDevLog(SOCK_DGRAM);
      ASSERT_GE(socket_, 0);
      Log_Level(5, "%s", text);
      EXPECT_EQ(next(), std::string("<30>TIME bootforge[PID]: ") + text);
      close(socket_);
    }
    Log_Level(5, "to nobody");
    ASSERT_EQ(unlink("/dev/log"), 0);
    Log_Level(5, "to nobody");
    socket_ = listenAtDevLog(SOCK_DGRAM);
    ASSERT_GE(socket_, 0);
    Log_Level(5, "third");
    EXPECT_EQ(next(), "<30>TIME bootforge[PID]: third");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(Syslog, GetsTheBeginningOfAMessageThatNoDatagramHolds) {
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    Log_Level(5, "%s", std::string(1'000'000, 'x').c_str());
    Log_Level(5, "next");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  std::string text = nextAsItIs();
  EXPECT_EQ(text.size(), 8192U);
  EXPECT_TRUE(text.ends_with("xxx...")) << text.substr(text.size() - 10);
  EXPECT_EQ(next(), "<30>TIME bootforge[PID]: next");
}

TEST_F(Syslog, MayTakeAStreamInWhichAZeroByteEndsAMessage) {
  close(socket_);
  ASSERT_EQ(unlink("/dev/log"), 0);
  socket_ = -1;
  int listener = listenAtDevLog(SOCK_STREAM);
  ASSERT_GE(listener, 0);
  ASSERT_EQ(listen(listener, 4), 0);
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    Log_Level(5, "first");
    Log_Level(5, "second");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  socket_ = accept(listener, nullptr, nullptr);
  close(listener);
  std::string text = nextAsItIs();
  std::size_t end = text.find('\0');
  ASSERT_NE(end, std::string::npos) << text;
  EXPECT_EQ(masked(text.substr(0, end)), "<30>TIME bootforge[PID]: first");
  EXPECT_EQ(masked(text.substr(end + 1)), "<30>TIME bootforge[PID]: second" + std::string(1, '\0'));
}

TEST_F(Syslog, MayTakeAStreamAndHangAndComeBackAsDatagrams) {
  close(socket_);
  ASSERT_EQ(unlink("/dev/log"), 0);
  int listener = listenAtDevLog(SOCK_STREAM);
  ASSERT_GE(listener, 0);
  ASSERT_EQ(listen(listener, 4), 0);
  Finished child = runInChild([this, listener] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    const std::string text(10'000, 'x');
    EXPECT_LT(durationOf([&] {
                for (int i = 0; i < 200; ++i) Log_Level(5, "%s", text.c_str());
              }).count(),
              2000);
    close(listener);
    ASSERT_EQ(unlink("/dev/log"), 0);
    socket_ = listenAtDevLog(SOCK_DGRAM);
    ASSERT_GE(socket_, 0);
    Log_Level(5, "back");
    EXPECT_TRUE(next().ends_with(" messages were lost"));
    EXPECT_EQ(next(), "<30>TIME bootforge[PID]: back");
    close(socket_);
  });
  close(listener);
  socket_ = -1;
  EXPECT_EQ(child.status, 0) << child.out;
}

/// A terminal as standard output.
class LogToTerminal : public PseudoTerminal {
 protected:
  void SetUp() override {
    PseudoTerminal::SetUp();
    if (terminal_ < 0) return;
    termios mode{};
    ASSERT_EQ(tcgetattr(terminal_, &mode), 0);
    cfmakeraw(&mode);
    ASSERT_EQ(tcsetattr(terminal_, TCSANOW, &mode), 0);
  }

  /// Runs the body with the terminal as standard output, and the log set up.
  Finished runOnTerminal(const std::function<void()>& body) const {
    return runInChild([&] {
      int out = dup(STDOUT_FILENO);
      dup2(terminal_, STDOUT_FILENO);
      Dictionary* config = Dictionary_Create();
      Dict_SetBool(config, false, "log.useTimeStamps.stdio");
      ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", config, 0)));
      Dictionary_Free(config);
      body();
      dup2(out, STDOUT_FILENO);  // for the report of failures
    });
  }

  /// What the terminal shows since the last look.
  std::string shown() const {
    return boost::regex_replace(PseudoTerminal::shown(), boost::regex("\\[[0-9]+\\]"), "[PID]");
  }

  void stop() const { ASSERT_EQ(tcflow(terminal_, TCOOFF), 0); }
  void goOn() const { ASSERT_EQ(tcflow(terminal_, TCOON), 0); }
};

TEST_F(LogToTerminal, ShowsMessagesAsAnyStream) {
  Finished child = runOnTerminal([] { Log_Level(5, "text"); });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(shown(), "info bootforge[PID]: text\n");
}

TEST_F(LogToTerminal, WaitsASecondForAStoppedOneAndNotAgain) {
  Finished child = runOnTerminal([this] {
    stop();
    auto first = durationOf([] { Log_Level(5, "lost"); }).count();
    auto more = durationOf([] {
                  for (int i = 0; i < 100; ++i) Log_Level(5, "lost");
                }).count();
    EXPECT_GE(first, 1000);
    EXPECT_LT(first, 1900);
    EXPECT_LT(more, 900);
    goOn();
    Log_Level(5, "back");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(shown(), "warning bootforge[PID]: " + lost(101) + "\ninfo bootforge[PID]: back\n");
}

TEST_F(LogToTerminal, GivesUpOneThatNobodyReadsAndEndsTheBrokenLine) {
  std::string text(3'000, 'x');
  Finished child = runOnTerminal([&] {
    EXPECT_LT(durationOf([&] {
                for (int i = 0; i < 100; ++i) Log_Level(5, "%s", text.c_str());
              }).count(),
              3000);
    EXPECT_NE(shown(), "");
    Log_Level(5, "back");
    EXPECT_TRUE(boost::regex_match(
        shown(), boost::regex("x*\nwarning bootforge\\[PID\\]: \\d+ messages were lost\n"
                              "info bootforge\\[PID\\]: back\n")));
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(LogToTerminal, LosesNothingWhenItIsStoppedForAMoment) {
  Finished child = runOnTerminal([this] {
    stop();
    pollCalls = 0;
    std::thread operatorOfIt([this] {
      EXPECT_TRUE(waitUntil([] { return pollCalls > 0; }));
      goOn();
    });
    Log_Level(5, "first");
    Log_Level(5, "second");
    operatorOfIt.join();
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(shown(), "info bootforge[PID]: first\ninfo bootforge[PID]: second\n");
}

TEST_F(LogToTerminal, LeavesTheStreamOfOthersAsItWas) {
  Finished child = runOnTerminal([this] {
    stop();
    Log_Level(5, "lost");
    EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK, 0);
    goOn();
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(LogToTerminal, WithoutANameIsGivenUpAsWell) {
  Finished child = runOnTerminal([this] {
    ASSERT_EQ(umount2("/dev/pts", MNT_DETACH), 0);  // no /proc here either
    stop();
    auto took = durationOf([] {
                  for (int i = 0; i < 100; ++i) Log_Level(5, "lost");
                }).count();
    EXPECT_GE(took, 1000);
    EXPECT_LT(took, 2500);
    goOn();
    Log_Level(5, "back");
    ASSERT_TRUE(mountTerminals());
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(shown(), "warning bootforge[PID]: " + lost(100) + "\ninfo bootforge[PID]: back\n");
}

TEST_F(LogToTerminal, IsGivenUpByAPanicOnStandardErrorToo) {
  Finished child = runOnTerminal([this] {
    dup2(terminal_, STDERR_FILENO);
    stop();
    signal(SIGABRT, SIG_DFL);
    alarm(10);
    Panic("VERIFY %s:%d\n", "DaemonPlugin", 86);
  });
  EXPECT_TRUE(WIFSIGNALED(child.status));
  EXPECT_EQ(WTERMSIG(child.status), SIGABRT);
  goOn();
}

TEST(LogToPipe, WaitsForItsReader) {
  Finished child = runInChild([] {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    int out = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", nullptr, 0)));
    std::string text(200'000, 'x');  // more than a pipe holds
    std::thread logger([&] { Log_Level(5, "%s", text.c_str()); });
    EXPECT_TRUE(waitUntil([&] {
      int available = 0;
      return ioctl(ends[0], FIONREAD, &available) == 0 && available == fcntl(ends[0], F_GETPIPE_SZ);
    }));
    std::string got;
    char buffer[65536];
    while (!got.ends_with('\n')) {
      ssize_t count = read(ends[0], buffer, sizeof buffer);
      if (count <= 0) break;
      got.append(buffer, static_cast<std::size_t>(count));
    }
    logger.join();
    dup2(out, STDOUT_FILENO);
    EXPECT_GT(got.size(), text.size());
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

}  // namespace
}  // namespace bootforge::test
