#include "plugins/legacy_daemon_plugin.h"

#include <memory>

#include "tests/support/barriers.h"
#include "tests/unit/daemons/daemon_fixture.h"

namespace bootforge::test {
namespace {

class LegacyDaemonPluginTest : public DaemonTest {
 protected:
  /// A daemon that notes its name and word in /tmp/order.
  LegacyDaemonPlugin& daemon(const std::string& name, int priority) {
    const std::string path = script(name, "echo " + name + " \"$@\" >> /tmp/order");
    plugins_.push_back(
        std::make_unique<LegacyDaemonPlugin>(name, path, priority, test::barriers()));
    return *plugins_.back();
  }

  std::vector<Node*> all() {
    std::vector<Node*> nodes;
    for (const auto& plugin : plugins_) nodes.push_back(plugin.get());
    return nodes;
  }

  std::vector<std::unique_ptr<LegacyDaemonPlugin>> plugins_;
};

TEST_F(LegacyDaemonPluginTest, TheGroupStandsBetweenTheScriptAndItsWord) {
  LegacyDaemonPlugin& cron = daemon("cron", 20);
  cron.start();
  cron.stop();
  EXPECT_EQ(readFile("/tmp/order"), "cron ++group=init/cron start\ncron ++group=init/cron stop\n");
}

TEST_F(LegacyDaemonPluginTest, KeepsItsPriorityAndItsScriptsClass) {
  LegacyDaemonPlugin& cron = daemon("cron", -7);
  EXPECT_EQ(cron.priority(), -7);
  EXPECT_EQ(cron.schedulingClass(), 3u);
  EXPECT_EQ(failureOf([&] { cron.applyHostProfile(); }),
            "method `LegacyDaemonPlugin::ApplyHostProfile' is not implemented");
}

//   priority 10:  a  b        start: a b, then c, then d
//   priority 20:  c           stop:  d, then c, then a b in the order in which they wait
//   priority 30:  d
TEST_F(LegacyDaemonPluginTest, StartsByPriorityAndStopsInReverse) {
  daemon("c", 20);
  daemon("d", 30);
  daemon("a", 10);
  daemon("b", 10);
  run(all());
  EXPECT_EQ(readFile("/tmp/order"),
            "a ++group=init/a start\nb ++group=init/b start\nc ++group=init/c start\n"
            "d ++group=init/d start\n");
}

TEST_F(LegacyDaemonPluginTest, StopsByPriorityFromTheHighest) {
  daemon("c", 20);
  daemon("d", 30);
  daemon("a", 10);
  run(all(), true);
  EXPECT_EQ(readFile("/tmp/order"),
            "d ++group=init/d stop\nc ++group=init/c stop\na ++group=init/a stop\n");
}

TEST_F(LegacyDaemonPluginTest, OneThatCannotBeStoppedHoldsUpNobody) {
  daemon("low", 10);
  LegacyDaemonPlugin& high = daemon("high", 20);
  ASSERT_EQ(::unlink("/etc/init.d/high"), 0);  // vanished since it was listed
  run(all(), true);
  EXPECT_EQ(readFile("/tmp/order"), "low ++group=init/low stop\n");
  EXPECT_THAT(
      records({Kind::kKernel}),
      ::testing::Contains(kernelLine("Daemon " + high.name() +
                                     " deactivation failed: failed to ForkExec '/etc/init.d/high "
                                     "++group=init/high stop' : No such file or directory")));
}

TEST_F(LegacyDaemonPluginTest, SeveralOfOneLevelStartInParallel) {
  // Each waits for the other: one after the other, they would never end.
  RunOptions::instance().daemonWait = true;
  ASSERT_EQ(::mkfifo("/tmp/meet", 0600), 0);
  plugins_.push_back(std::make_unique<LegacyDaemonPlugin>(
      "reader", script("reader", "cat /tmp/meet > /dev/null"), 10, test::barriers()));
  plugins_.push_back(std::make_unique<LegacyDaemonPlugin>(
      "writer", script("writer", "echo met > /tmp/meet"), 10, test::barriers()));
  run(all(), false, 2);
  EXPECT_THAT(records({Kind::kLog}), ::testing::IsSupersetOf({logLine(5, "reader started.\n"),
                                                              logLine(5, "writer started.\n")}));
}

}  // namespace
}  // namespace bootforge::test
