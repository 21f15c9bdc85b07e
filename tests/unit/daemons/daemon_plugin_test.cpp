#include "tests/unit/daemons/daemon_fixture.h"

namespace bootforge::test {
namespace {

/// A daemon without init script: whatever is in its table was put there by the test.
class BareDaemon : public DaemonPlugin {
 public:
  explicit BareDaemon(std::string name) : DaemonPlugin(std::move(name), 5, 3) {}
  void setStart(const std::string& command) { operations_[kStart] = command; }
  void setStop(const std::string& command) { operations_[kStop] = command; }
};

class DaemonPluginTest : public DaemonTest {};

TEST_F(DaemonPluginTest, HasNoDescriptionAndNoHostProfile) {
  BareDaemon daemon("crond");
  EXPECT_EQ(daemon.apiVersion(), -1);
  EXPECT_FALSE(daemon.supportsApplyHostProfile());
  EXPECT_EQ(daemon.schedulingClass(), 3u);
  EXPECT_EQ(daemon.dotAttributes(), "");
  EXPECT_EQ(failureOf([&] { daemon.applyHostProfile(); }),
            "method `DaemonPlugin::ApplyHostProfile' is not implemented");
  EXPECT_EQ(failureOf([&] { daemon.restart(); }),
            "method `DaemonPlugin::Restart' is not implemented");
  EXPECT_EQ(failureOf([&] { daemon.sslReset(); }),
            "method `DaemonPlugin::SSLReset' is not implemented");
}

TEST_F(DaemonPluginTest, WithoutOperationsSaysThatTheyAreNotInitialized) {
  BareDaemon daemon("crond");
  EXPECT_EQ(failureOf([&] { daemon.stop(); }), "crond Daemon operations are not initialized");
  EXPECT_EQ(failureOf([&] { daemon.start(); }),
            "crond->start() failed: crond Daemon operations are not initialized");
}

TEST_F(DaemonPluginTest, AStartedDaemonIsSaidToBeStarted) {
  BareDaemon daemon("crond");
  daemon.setStart(script("ok", "exit 0"));
  daemon.start();
  EXPECT_THAT(records(), ElementsAre(logLine(5, "crond started.\n")));
}

TEST_F(DaemonPluginTest, AFailedStartNamesTheCommandAndItsStatus) {
  BareDaemon daemon("crond");
  const std::string path = script("bad", "exit 3");
  daemon.setStart(path + " start");
  const std::string reason = "Execution of command: " + path + " start failed with status: 3";
  EXPECT_EQ(failureOf([&] { daemon.start(); }), "crond->start() failed: " + reason);
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "Bootforge failed to start: crond reason: " + reason + "\n")));
}

TEST_F(DaemonPluginTest, AFailedStopIsPassedOnAsItIs) {
  BareDaemon daemon("crond");
  const std::string path = script("bad", "kill -9 $$");
  daemon.setStop(path + " stop");
  const std::string reason = "Execution of command: " + path + " stop failed with signal: 9";
  EXPECT_EQ(failureOf([&] { daemon.stop(); }), reason);
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "Bootforge failed to stop: crond reason: " + reason + "\n")));
}

TEST_F(DaemonPluginTest, DeactivationTellsTheKernelLog) {
  BareDaemon daemon("crond");
  daemon.setStop(script("ok", "exit 0"));
  Executor none(0, false);
  daemon.runReverse(none);
  EXPECT_THAT(records(),
              ElementsAre(kernelLine("Deactivating Daemon crond."),
                          logLine(5, "executing stop for daemon crond.\n"),
                          logLine(5, "crond stopped.\n"), kernelLine("Daemon crond deactivated.")));
}

TEST_F(DaemonPluginTest, AFailedDeactivationTellsTheKernelLogAndReturns) {
  BareDaemon daemon("crond");
  daemon.setStop("/etc/init.d/missing stop");
  const std::string reason =
      "failed to ForkExec '/etc/init.d/missing stop' : No such file or directory";
  Executor none(0, false);
  daemon.runReverse(none);
  EXPECT_THAT(records(),
              ElementsAre(kernelLine("Deactivating Daemon crond."),
                          logLine(5, "executing stop for daemon crond.\n"),
                          logLine(3, "Bootforge failed to stop: crond reason: " + reason + "\n"),
                          kernelLine("Daemon crond deactivation failed: " + reason)));
}

TEST_F(DaemonPluginTest, ActivationShowsTheServiceOnTheProgressScreen) {
  BareDaemon daemon("crond");
  daemon.setStart(script("ok", "exit 0"));
  run({&daemon});
  EXPECT_THAT(
      records(),
      ElementsAre(progress("ProgressText Starting service crond"),
                  kernelLine("Activating Bootforge plugin crond."),
                  logLine(5, "executing start plugin: crond\n"), logLine(5, "crond started.\n"),
                  kernelLine("Bootforge plugin crond activated."), progress("Step")));
  EXPECT_GT(daemon.activationStart().tv_sec, 0);
}

TEST_F(DaemonPluginTest, AFailedActivationStillAdvancesTheScreen) {
  BareDaemon daemon("crond");
  const std::string path = script("bad", "exit 1");
  daemon.setStart(path);
  run({&daemon});
  const std::string reason = "Execution of command: " + path + " failed with status: 1";
  EXPECT_THAT(
      records(),
      ElementsAre(progress("ProgressText Starting service crond"),
                  kernelLine("Activating Bootforge plugin crond."),
                  logLine(5, "executing start plugin: crond\n"),
                  logLine(3, "Bootforge failed to start: crond reason: " + reason + "\n"),
                  logLine(2, "Method invocation failed: crond->start() failed: " + reason + "\n"),
                  kernelLine("Bootforge plugin crond activation failed: crond->start() "
                             "failed: " +
                             reason),
                  progress("Step")));
}

}  // namespace
}  // namespace bootforge::test
