#include "plugins/debug_plugin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "graph/barrier_registry.h"
#include "graph/executor.h"
#include "graph/graph.h"
#include "graph/init_barrier.h"
#include "main/run_options.h"
#include "tests/double/recorder.h"
#include "tests/support/barriers.h"
#include "tests/support/own_process.h"
#include "tests/unit/plugins/description.h"

namespace bootforge::test {
namespace {

using doubles::kernelLine;
using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;

class DebugPluginTest : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    RunOptions::instance() = RunOptions();
  }

  /// What starting an injection of that command logs.
  static std::vector<doubles::Record> recordsOfStarting(const std::string& command) {
    DebugPlugin({"probe", {}, {}, command}, test::barriers()).start();
    return records();
  }
};

TEST_F(DebugPluginTest, IsAPluginOfTheFirstVersion) {
  const DebugPlugin plugin({"probe", {}, {}, "true"}, test::barriers());
  EXPECT_EQ(plugin.name(), "probe");
  EXPECT_EQ(plugin.apiVersion(), 1);
  EXPECT_EQ(plugin.pluginVersion(), "");
  EXPECT_EQ(plugin.schedulingClass(), 1U);
  EXPECT_FALSE(plugin.runOnce());
  EXPECT_THAT(plugin.requiredFlags(), IsEmpty());
  EXPECT_THAT(plugin.disablingFlags(), IsEmpty());
}

TEST_F(DebugPluginTest, LinksItsMilestonesInTheirOrder) {
  InitBarrier* const known = test::barriers().lookupBarrier("debug-known", true);
  const DebugPlugin plugin(
      {"probe", {"debug-b", "debug-a"}, {"debug-d", "debug-known", "debug-c"}, "true"},
      test::barriers());
  EXPECT_EQ(dependentsOf(plugin), "debug-b debug-a");
  EXPECT_EQ(prerequisitesOf(plugin), "debug-d debug-known debug-c");
  EXPECT_EQ(dependentsOf(*known), "probe");
  EXPECT_EQ(prerequisitesOf(*test::barriers().lookupBarrier("debug-a", false)), "probe");
}

TEST_F(DebugPluginTest, IsMadeOfAnEntry) {
  const auto plugin = std::make_unique<DebugPlugin>(
      DebugEntry{"probe", {"entry-p"}, {"entry-r"}, "echo hi >/tmp/made"}, test::barriers());
  EXPECT_EQ(plugin->name(), "probe");
  EXPECT_EQ(dependentsOf(*plugin), "entry-p");
  EXPECT_EQ(prerequisitesOf(*plugin), "entry-r");
  plugin->start();
  EXPECT_EQ(readFile("/tmp/made"), "hi\n");
}

TEST_F(DebugPluginTest, KnowsNoHostProfile) {
  DebugPlugin plugin({"probe", {}, {}, "true"}, test::barriers());
  EXPECT_FALSE(plugin.supportsApplyHostProfile());
  try {
    plugin.applyHostProfile();
    ADD_FAILURE() << "applied";
  } catch (const NotImplementedException& error) {
    EXPECT_STREQ(error.what(), "method `DebugPlugin::ApplyHostProfile' is not implemented");
  }
}

TEST_F(DebugPluginTest, RunsItsCommandThroughTheShellAndWaitsForIt) {
  EXPECT_THAT(recordsOfStarting("for i in 1 2 3; do echo $i; done | wc -l >/tmp/count"), IsEmpty());
  EXPECT_EQ(readFile("/tmp/count"), "3\n");
}

// A writer whose reader has gone ends, and with it the boot goes on.
TEST_F(DebugPluginTest, RunsItsCommandWithoutIgnoringABrokenPipe) {
  inChild([] {
    ::signal(SIGPIPE, SIG_IGN);
    EXPECT_THAT(recordsOfStarting("(yes; echo $? >/tmp/status) | head -n 1 >/dev/null"), IsEmpty());
  });
  EXPECT_EQ(readFile("/tmp/status"), std::to_string(128 + SIGPIPE) + "\n");
}

TEST_F(DebugPluginTest, LogsTheStatusOfACommandThatFails) {
  EXPECT_THAT(recordsOfStarting("exit 3"),
              ElementsAre(logLine(5, "debug injection 'probe' returned 0x000300\n")));
}

TEST_F(DebugPluginTest, LogsTheLargestStatus) {
  EXPECT_THAT(recordsOfStarting("exit 255"),
              ElementsAre(logLine(5, "debug injection 'probe' returned 0x00ff00\n")));
}

TEST_F(DebugPluginTest, LogsTheStatusOfACommandThatIsNotThere) {
  EXPECT_THAT(recordsOfStarting("/bin/missing 2>/dev/null"),
              ElementsAre(logLine(5, "debug injection 'probe' returned 0x007f00\n")));
}

TEST_F(DebugPluginTest, LogsTheSignalThatEndedACommand) {
  EXPECT_THAT(recordsOfStarting("kill -9 $$"),
              ElementsAre(logLine(5, "debug injection 'probe' returned 0x000009\n")));
}

TEST_F(DebugPluginTest, LogsTheStatusWithoutAShell) {
  ASSERT_EQ(::unlink("/bin/sh"), 0);
  EXPECT_THAT(recordsOfStarting("true"),
              ElementsAre(logLine(5, "debug injection 'probe' returned 0x007f00\n")));
}

// Where children are reaped by the kernel there is no status.
TEST_F(DebugPluginTest, LogsThatThereIsNoStatus) {
  inChild([] {
    ::signal(SIGCHLD, SIG_IGN);
    EXPECT_THAT(recordsOfStarting("true"),
                ElementsAre(logLine(5, "debug injection 'probe' returned 0xffffffff\n")));
  });
}

TEST_F(DebugPluginTest, LogsANameAsItIs) {
  DebugPlugin({"100%s 'x'", {}, {}, "exit 1"}, test::barriers()).start();
  EXPECT_THAT(records(),
              ElementsAre(logLine(5, "debug injection '100%s 'x'' returned 0x000100\n")));
}

//  failing > ready > next
TEST_F(DebugPluginTest, ThatFailsCountsAsActivatedAndTheBootGoesOn) {
  DebugPlugin failing({"failing", {"debug-ready"}, {}, "exit 3"}, test::barriers());
  DebugPlugin next({"next", {}, {"debug-ready"}, "echo started >/tmp/next"}, test::barriers());
  Executor executor(1, false);
  Graph({&next, &failing}).runForward(executor);
  EXPECT_EQ(readFile("/tmp/next"), "started\n");
  EXPECT_THAT(records(), ElementsAre(kernelLine("Activating Bootforge plugin failing."),
                                     logLine(5, "executing start plugin: failing\n"),
                                     logLine(5, "debug injection 'failing' returned 0x000300\n"),
                                     kernelLine("Bootforge plugin failing activated."),
                                     kernelLine("Activating Bootforge plugin next."),
                                     logLine(5, "executing start plugin: next\n"),
                                     kernelLine("Bootforge plugin next activated.")));
}

TEST_F(DebugPluginTest, InvokedWithAHostProfileFails) {
  RunOptions::instance().invoke = true;
  RunOptions::instance().method = "apply_host_profile";
  DebugPlugin plugin({"probe", {}, {}, "true"}, test::barriers());
  Executor executor(0, false);
  plugin.run(executor);
  RunOptions::instance() = RunOptions();
  EXPECT_THAT(records(),
              ElementsAre(kernelLine("Activating Bootforge plugin probe."),
                          logLine(5, "executing host profile plugin: probe\n"),
                          logLine(2,
                                  "unable to invoke method 'apply_host_profile' on plugin 'probe': "
                                  "method `DebugPlugin::ApplyHostProfile' is not implemented\n"),
                          kernelLine("Bootforge plugin probe activation failed: Method invocation "
                                     "failed")));
}

}  // namespace
}  // namespace bootforge::test
