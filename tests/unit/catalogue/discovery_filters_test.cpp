// The deny list and the boot flags.
#include "graph/barrier_registry.h"
#include "graph/executor.h"
#include "graph/graph.h"
#include "graph/init_barrier.h"
#include "tests/unit/catalogue/discovery_fixture.h"

namespace bootforge {
namespace {

using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;

class DiscoveryFilters : public DiscoveryTest {
 protected:
  void discoverWith(const Metadata& metadata) {
    writePlugin("net.json", metadata);
    discover("net.json");
  }

  /// The nodes that provide a milestone.
  Node::List providersOf(const char* milestone) {
    ScopedLock lock(graphLock);
    InitBarrier* const barrier = catalogue.barriers.lookupBarrier(milestone, false);
    return barrier == nullptr ? Node::List() : barrier->prerequisites();
  }
};

const doubles::Record kDenied = logLine(5, "ignoring plugin 'net' due to denylist.\n");

TEST_F(DiscoveryFilters, ADeniedPluginIsLeftOut) {
  options.disabledPlugins = {"storage", "net"};
  discoverWith({});
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(kDenied));
}

TEST_F(DiscoveryFilters, TheDenyListHoldsNamesWithoutLib) {
  writePlugin("libnet.json");
  options.disabledPlugins = {"net"};
  discover("libnet.json");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(kDenied));

  doubles::reset();
  options.disabledPlugins = {"libnet"};
  discover("libnet.json");
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryFilters, TheDenyListIsComparedExactly) {
  options.disabledPlugins = {"ne", "nett", "Net", "net.json", " net", ""};
  discoverWith({});
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryFilters, ADeniedPluginsFlagsAreNotLookedAt) {
  options.disabledPlugins = {"net"};
  bootFlags = {"a"};
  Metadata metadata;
  metadata.disablingFlags = R"(["a"])";
  metadata.requiredFlags = R"(["b"])";
  discoverWith(metadata);
  EXPECT_THAT(records(), ElementsAre(kDenied));
}

TEST_F(DiscoveryFilters, ADeniedFileIsStillRead) {
  options.disabledPlugins = {"net"};
  test::writeFile("/plugins/net.json", "[]");
  discover("net.json");
  const std::string message =
      "exception occurred whilst loading plugin net.json: plugin `/plugins/net.json' is invalid: "
      "plugin root is not an object";
  EXPECT_THAT(records(), ElementsAre(doubles::alert(message), logLine(3, message + "\n")));
}

TEST_F(DiscoveryFilters, OneOfTheDisablingFlagsIsEnough) {
  bootFlags = {"b", "x"};
  Metadata metadata;
  metadata.disablingFlags = R"(["a", "b", "c"])";
  discoverWith(metadata);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "ignoring plugin 'net', disabled due to boot flags: b .\n")));
}

TEST_F(DiscoveryFilters, DisablingFlagsAreToldInAscendingOrderWithABlankAfterEach) {
  bootFlags = {"c", "a", "b", "B", "x"};
  Metadata metadata;
  metadata.disablingFlags = R"(["c", "b", "a", "B", "d", "c"])";
  discoverWith(metadata);
  EXPECT_THAT(records(), ElementsAre(logLine(
                             3, "ignoring plugin 'net', disabled due to boot flags: B a b c .\n")));
}

TEST_F(DiscoveryFilters, DisablingFlagsThatWereNotGivenDoNotDisable) {
  bootFlags = {"x"};
  Metadata metadata;
  metadata.disablingFlags = R"(["a", "X", "xx"])";
  discoverWith(metadata);
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryFilters, OnlyTheMissingRequiredFlagsAreTold) {
  bootFlags = {"a"};
  Metadata metadata;
  metadata.requiredFlags = R"(["a", "b"])";
  discoverWith(metadata);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "ignoring plugin 'net', disabled due to missing "
                                             "required boot flags: b .\n")));
}

TEST_F(DiscoveryFilters, MissingFlagsAreToldInAscendingOrderWithABlankAfterEach) {
  Metadata metadata;
  metadata.requiredFlags = R"(["z", "b", "Z", "b"])";
  discoverWith(metadata);
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "ignoring plugin 'net', disabled due to missing "
                                             "required boot flags: Z b z .\n")));
}

TEST_F(DiscoveryFilters, APluginWithAllItsRequiredFlagsIsAccepted) {
  bootFlags = {"a", "b", "c"};
  Metadata metadata;
  metadata.requiredFlags = R"(["b", "a"])";
  metadata.disablingFlags = R"(["d"])";
  discoverWith(metadata);
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::Idle);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryFilters, BothFlagMessagesAreToldWhereBothHold) {
  bootFlags = {"off"};
  Metadata metadata;
  metadata.requiredFlags = R"(["on"])";
  metadata.disablingFlags = R"(["off"])";
  discoverWith(metadata);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "ignoring plugin 'net', disabled due to boot flags: off .\n"),
                          logLine(3,
                                  "ignoring plugin 'net', disabled due to missing required boot "
                                  "flags: on .\n")));
}

TEST_F(DiscoveryFilters, ADisabledPluginStaysOutAlthoughItsRequiredFlagsAreThere) {
  bootFlags = {"both"};
  Metadata metadata;
  metadata.requiredFlags = R"(["both"])";
  metadata.disablingFlags = R"(["both"])";
  discoverWith(metadata);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(logLine(
                             3, "ignoring plugin 'net', disabled due to boot flags: both .\n")));
}

TEST_F(DiscoveryFilters, TheFlagMessagesHaveTheNameAndTheDenyListMessageTheBaseName) {
  writePlugin("libnet.json", {.disablingFlags = R"(["off"])"});
  bootFlags = {"off"};
  discover("libnet.json");
  EXPECT_THAT(records(), ElementsAre(logLine(
                             3, "ignoring plugin 'net', disabled due to boot flags: off .\n")));
}

TEST_F(DiscoveryFilters, ARejectedPluginIsDoneAndStaysTiedToItsMilestones) {
  bootFlags = {"off"};
  Metadata metadata;
  metadata.disablingFlags = R"(["off"])";
  metadata.provides = R"(["rejected-net-up"])";
  metadata.runOnce = "true";
  discoverWith(metadata);
  const Node::List providers = providersOf("rejected-net-up");
  ASSERT_EQ(providers.size(), 1U);
  EXPECT_EQ(providers.front()->name(), "net");
  EXPECT_EQ(stateOf(*providers.front()), Node::State::ForwardDone);
  EXPECT_THAT(runOnce, IsEmpty()) << "a plugin that is left out has not been run";
}

TEST_F(DiscoveryFilters, AMilestoneOfADeniedPluginOpens) {
  options.disabledPlugins = {"net"};
  discoverWith({.provides = R"(["denied-net-up"])"});
  writePlugin("web.json", {.requires_ = R"(["denied-net-up"])"});
  discover("web.json");
  ASSERT_THAT(names(), ElementsAre("web"));
  doubles::reset();

  {
    Executor executor(1, false);
    Graph({plugins.front().get()}).runForward(executor);
  }
  EXPECT_THAT(records(), ElementsAre(doubles::kernelLine("Activating Bootforge plugin web."),
                                     logLine(5, "executing start plugin: web\n"),
                                     doubles::kernelLine("Bootforge plugin web activated.")));
}

}  // namespace
}  // namespace bootforge
