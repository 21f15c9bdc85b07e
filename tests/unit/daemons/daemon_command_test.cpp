#include "plugins/daemon_command.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "tests/unit/daemons/daemon_fixture.h"
#include "util/unique_fd.h"

namespace bootforge::test {
namespace {

class DaemonCommandTest : public DaemonTest {
 protected:
  /// A poll costs no time from here on: its sleep is interrupted at once.
  static void withoutSleep() { doubles::failCall("poll", {.error = EINTR, .times = 10000}); }

  /// Ends a script that waits at a FIFO, or is about to.
  static void letGo(const char* fifo) { const UniqueFd end(::open(fifo, O_WRONLY | O_CLOEXEC)); }

  RunOptions& options_ = RunOptions::instance();
};

TEST_F(DaemonCommandTest, WordsAreSplitAtRunsOfWhiteSpaceAndQuotesMeanNothing) {
  const std::string path = script("words", "for word; do echo \"<$word>\"; done > /tmp/words");
  runDaemonCommand("  " + path + "   ++group=init/x \t 'a  b'  start ");
  EXPECT_EQ(readFile("/tmp/words"), "<++group=init/x>\n<'a>\n<b'>\n<start>\n");
}

TEST_F(DaemonCommandTest, TheChildStandsInTheRootWithTheGivenEnvironment) {
  char setting[] = "SETTING=from the run options";
  char* environment[] = {setting, nullptr};
  options_.environment = environment;
  ASSERT_EQ(::chdir("/tmp"), 0);
  runDaemonCommand(script("place", "{ pwd; echo \"$SETTING\"; } > /tmp/place"));
  EXPECT_EQ(readFile("/tmp/place"), "/\nfrom the run options\n");
}

TEST_F(DaemonCommandTest, TheChildHasTheRealUserAndGroup) {
  const std::string path = script("owner", "echo > /tmp/owned");
  ASSERT_EQ(::chmod("/", 0755), 0);
  ASSERT_EQ(::chmod("/tmp", 01777), 0);
  constexpr id_t kNobody = 65534;
  if (::setegid(kNobody) != 0) GTEST_SKIP() << "there is no other group here";
  if (::seteuid(kNobody) == 0) runDaemonCommand(path);
  EXPECT_EQ(::seteuid(::getuid()), 0);
  EXPECT_EQ(::setegid(::getgid()), 0);
  struct stat status {};
  ASSERT_EQ(::stat("/tmp/owned", &status), 0);
  EXPECT_EQ(status.st_uid, ::getuid());
  EXPECT_EQ(status.st_gid, ::getgid());
}

TEST_F(DaemonCommandTest, StandardErrorGoesToTheLogSocketOrElseToTheNullDevice) {
  // A socket cannot be opened by its name, so the null device takes its place.
  const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const std::string path = script("streams", "echo to error >&2; echo to output; cat > /tmp/input");
  runDaemonCommand(path);
  EXPECT_EQ(readFile("/tmp/input"), "");
  EXPECT_THAT(records(), ElementsAre());

  ::unlink("/dev/log");
  writeFile("/dev/log", "");
  runDaemonCommand(path);
  EXPECT_EQ(readFile("/dev/log"), "to error\n");
}

TEST_F(DaemonCommandTest, WithoutANullDeviceTheRootTakesItsPlace) {
  doubles::failCall("open", {.error = ENOENT, .times = 1, .skip = 1});
  const std::string path = script("ok", "exit 0");
  runDaemonCommand(path);
  EXPECT_THAT(records(), ElementsAre(logLine(3, "opening /dev/null failed\n")));
}

TEST_F(DaemonCommandTest, AnUnusableRootIsFatal) {
  EXPECT_EXIT(
      {
        doubles::failCall("open", {.error = EMFILE, .times = 1});
        runDaemonCommand("/bin/true");
      },
      ::testing::KilledBySignal(SIGABRT), "VERIFY DaemonPlugin:86");
}

TEST_F(DaemonCommandTest, WhatIsNoProgramIsToldOfWithTheSystemsReason) {
  writeFile("/etc/init.d/text", "no program", 0644);
  EXPECT_EQ(failureOf([] { runDaemonCommand("/etc/init.d/text start"); }),
            "failed to ForkExec '/etc/init.d/text start' : Permission denied");
  EXPECT_EQ(failureOf([] { runDaemonCommand("/etc/init.d start"); }),
            "failed to ForkExec '/etc/init.d start' : Permission denied");
  writeFile("/etc/init.d/garbage",
            std::string("\x7f"
                        "ELF garbage"),
            0755);
  EXPECT_EQ(failureOf([] { runDaemonCommand("/etc/init.d/garbage"); }),
            "failed to ForkExec '/etc/init.d/garbage' : Exec format error");
  EXPECT_EQ(failureOf([] { runDaemonCommand("   "); }),
            "failed to ForkExec '   ' : No such file or directory");
}

TEST_F(DaemonCommandTest, AnEndThatCannotBeLearntIsAnUnknownError) {
  doubles::failCall("waitpid", {.error = ECHILD, .times = 1});
  const std::string path = script("ok", "exit 0");
  EXPECT_EQ(failureOf([&] { runDaemonCommand(path); }),
            "Execution of command: " + path + " failed <unknown_error>");
}

TEST_F(DaemonCommandTest, AnInterruptedWaitIsRepeatedWithoutCost) {
  doubles::failCall("waitpid", {.error = EINTR, .times = 2000});
  runDaemonCommand(script("ok", "exit 0"));
  EXPECT_GT(doubles::callCount("waitpid"), 2000);
  // At most for the time that the script took after all of that.
  EXPECT_LT(doubles::callCount("poll"), 1000);
}

TEST_F(DaemonCommandTest, AScriptOverItsTimeHasTimedOutWhenWaitingWasAskedFor) {
  options_.daemonWait = true;
  options_.daemonWaitTimeout = 1;
  const std::string path = script("slow", "read line < /tmp/never");
  ASSERT_EQ(::mkfifo("/tmp/never", 0600), 0);
  EXPECT_EQ(failureOf([&] { runDaemonCommand(path + " start"); }),
            "Execution of command: '" + path + " start' timed out.");
  // One look for each poll of the budget, and none beyond it.
  EXPECT_EQ(doubles::callCount("waitpid"), 100);
  // The script was left alone; it ends now.
  const UniqueFd end(::open("/tmp/never", O_RDWR | O_CLOEXEC));
}

TEST_F(DaemonCommandTest, AScriptOverItsTimeCountsAsSuccessfulWhenNobodyWaits) {
  options_.daemonWait = false;
  options_.daemonWaitTimeout = 1;  // says nothing then
  ASSERT_EQ(::mkfifo("/tmp/never", 0600), 0);
  const std::string path = script("slow", "read line < /tmp/never");
  withoutSleep();
  runDaemonCommand(path + " start");
  EXPECT_EQ(doubles::callCount("waitpid"), 1000);
  EXPECT_THAT(records(), ElementsAre());
  letGo("/tmp/never");
}

TEST_F(DaemonCommandTest, TheBudgetIsCountedInThirtyTwoBits) {
  options_.daemonWait = true;
  // Milliseconds that do not fit: 4294968000 is 704 above the limit, which makes 71 polls.
  options_.daemonWaitTimeout = 4294968;
  ASSERT_EQ(::mkfifo("/tmp/never", 0600), 0);
  const std::string path = script("slow", "read line < /tmp/never");
  withoutSleep();
  EXPECT_EQ(failureOf([&] { runDaemonCommand(path); }),
            "Execution of command: '" + path + "' timed out.");
  EXPECT_EQ(doubles::callCount("waitpid"), 71);
  letGo("/tmp/never");
}

TEST_F(DaemonCommandTest, TheEndOfTheScriptEndsThePause) {
  options_.daemonWait = true;
  ASSERT_EQ(::mkfifo("/tmp/gate", 0600), 0);
  const std::string path = script("gated", "read line < /tmp/gate");
  doubles::pollWithoutLimit();
  std::thread opener([] {
    const UniqueFd gate(::open("/tmp/gate", O_WRONLY | O_CLOEXEC));
    while (doubles::callCount("poll") == 0) std::this_thread::yield();
    [[maybe_unused]] const ssize_t written = ::write(gate.get(), "go\n", 3);
  });
  runDaemonCommand(path);
  opener.join();
  EXPECT_EQ(doubles::callCount("poll"), 1);
}

// A tracer that has a child that has ended keeps it from us: its end can be seen, and no status
// had.
TEST_F(DaemonCommandTest, AnEndThatIsWithheldDoesNotBurnTheBudget) {
  options_.daemonWait = true;
  options_.daemonWaitTimeout = 2;
  const std::string path = script("traced", "exit 0");
  constexpr int kLooks = 50;
  doubles::hideEnds(kLooks);
  const auto before = std::chrono::steady_clock::now();
  runDaemonCommand(path);
  // One pause may have been cut short by the end of the script; the rest have their full length.
  EXPECT_GE(std::chrono::steady_clock::now() - before,
            std::chrono::milliseconds(10 * (kLooks - 2)));
}

TEST_F(DaemonCommandTest, ATimeoutOfNothingIsNoTimeout) {
  options_.daemonWait = true;
  options_.daemonWaitTimeout = 0;
  ASSERT_EQ(::mkfifo("/tmp/gate", 0600), 0);
  const std::string path = script("gated", "read line < /tmp/gate");
  std::thread opener([] {
    // Waits for the script to be there, and lets it go.
    const UniqueFd gate(::open("/tmp/gate", O_WRONLY | O_CLOEXEC));
    [[maybe_unused]] const ssize_t written = ::write(gate.get(), "go\n", 3);
  });
  runDaemonCommand(path);
  opener.join();
}

TEST_F(DaemonCommandTest, NoDescriptorIsLeftBehind) {
  const int before = countOpenDescriptors();
  runDaemonCommand(script("ok", "exit 0"));
  failureOf([] { runDaemonCommand("/etc/init.d/missing"); });
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST_F(DaemonCommandTest, TheChildHasThreeDescriptorsAndNoOthers) {
  // One that would be passed on: not close-on-exec.
  const UniqueFd stray(::open("/etc", O_RDONLY));
  // The shell keeps what it opens for itself at ten and above.
  ASSERT_LT(stray.get(), 10);
  const std::string path = script("list",
                                  "for n in 0 1 2 3 4 5 6 7 8 9; do\n"
                                  "  if { true >&$n; } 2>/dev/null; then open=$open$n; fi\n"
                                  "done\n"
                                  "echo $open > /tmp/open");
  runDaemonCommand(path);
  EXPECT_EQ(readFile("/tmp/open"), "012\n");
}

}  // namespace
}  // namespace bootforge::test
