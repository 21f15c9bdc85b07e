// Plugins that run once.
#include "tests/unit/catalogue/discovery_fixture.h"

namespace bootforge {
namespace {

using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;

class DiscoveryRunOnce : public DiscoveryTest {
 protected:
  /// Discovers a run-once plugin of that name, its version given as JSON.
  void discoverOnce(const std::string& name, const std::string& version) {
    writePlugin(name + ".json", {.runOnce = "true", .pluginVersion = version});
    discover(name + ".json");
  }
};

TEST_F(DiscoveryRunOnce, AFirstRunAddsTheNameWithTheVersion) {
  discoverOnce("net", R"("1.2")");
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::Idle);
  EXPECT_THAT(runOnce, ElementsAre("net1.2"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryRunOnce, AVersionThatHasBeenRunIsListedAndMarkedDone) {
  runOnce = {"net1.2"};
  discoverOnce("net", R"("1.2")");
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::ForwardDone);
  EXPECT_THAT(runOnce, ElementsAre("net1.2"));
  EXPECT_THAT(records(), ElementsAre(logLine(5,
                                             "ignoring plugin 'net' because version '1.2'  has "
                                             "already been run.\n")));
}

TEST_F(DiscoveryRunOnce, AnotherVersionRunsAgainAndBothAreKept) {
  runOnce = {"net1.2"};
  discoverOnce("net", R"("1.3")");
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::Idle);
  EXPECT_THAT(runOnce, ElementsAre("net1.2", "net1.3"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryRunOnce, OtherPluginsDoNotTouchTheSet) {
  runOnce = {"net1.2"};
  writePlugin("net.json", {.runOnce = "false", .pluginVersion = R"("1.2")"});
  discover("net.json");
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::Idle);
  EXPECT_THAT(runOnce, ElementsAre("net1.2"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryRunOnce, OldDescriptionsKnowNoRunOnce) {
  writePlugin("net.json", {.runOnce = "true", .pluginVersion = R"("1.2")", .apiVersion = "2"});
  discover("net.json");
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_THAT(runOnce, IsEmpty());
}

TEST_F(DiscoveryRunOnce, AKeyHasNoSeparator) {
  discoverOnce("net", R"("12")");
  discoverOnce("net1", R"("2")");
  EXPECT_THAT(names(), ElementsAre("net", "net1"));
  EXPECT_EQ(stateOf(*plugins.back()), Node::State::ForwardDone);
  EXPECT_THAT(runOnce, ElementsAre("net12"));
}

TEST_F(DiscoveryRunOnce, AVersionWithABlankIsStoredCleanedAndSoRunsEveryTime) {
  discoverOnce("net", R"("1 2")");
  EXPECT_THAT(runOnce, ElementsAre("net12"));
  discoverOnce("net", R"("1 2")");
  EXPECT_EQ(stateOf(*plugins.back()), Node::State::Idle);
  EXPECT_THAT(runOnce, ElementsAre("net12"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryRunOnce, TheSetIsAskedForTheKeyAsItIs) {
  runOnce = {"net1 2"};
  discoverOnce("net", R"("1 2")");
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::ForwardDone);
  EXPECT_THAT(runOnce, ElementsAre("net1 2"));
  EXPECT_THAT(records(), ElementsAre(logLine(5,
                                             "ignoring plugin 'net' because version '1 2'  has "
                                             "already been run.\n")));
}

TEST_F(DiscoveryRunOnce, UsualCharactersAreKept) {
  const std::string usual = "-._+0123456789abcxyzABCXYZ";
  discoverOnce("n", '"' + usual + '"');
  EXPECT_THAT(runOnce, ElementsAre("n" + usual));
}

TEST_F(DiscoveryRunOnce, UnusualCharactersAreTakenOut) {
  discoverOnce("n", R"(" \t\n\r\u0001!\"#$%&'()*,/:;<=>?@[\\]^`{|}~\u00fc\u00df\u20ac")");
  EXPECT_THAT(runOnce, ElementsAre("n"));
}

TEST_F(DiscoveryRunOnce, BytesThatAreNoUtf8AreTakenOut) {
  discoverOnce("n",
               "\"1\x80\xc3\xff"
               "2\"");
  EXPECT_THAT(runOnce, ElementsAre("n12"));
}

TEST_F(DiscoveryRunOnce, TheNameIsCleanedToo) {
  discoverOnce("a b,c", R"("1")");
  EXPECT_THAT(names(), ElementsAre("a b,c"));
  EXPECT_THAT(runOnce, ElementsAre("abc1"));
}

TEST_F(DiscoveryRunOnce, APluginWithoutNameAndVersionHasAnEmptyKey) {
  discoverOnce("", R"("")");
  EXPECT_THAT(names(), ElementsAre(""));
  EXPECT_THAT(runOnce, ElementsAre(""));
}

TEST_F(DiscoveryRunOnce, OneFileNamedTwiceRunsOnce) {
  discoverOnce("net", R"("1")");
  discover("net.json");
  EXPECT_THAT(names(), ElementsAre("net", "net"));
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::Idle);
  EXPECT_EQ(stateOf(*plugins.back()), Node::State::ForwardDone);
}

}  // namespace
}  // namespace bootforge
