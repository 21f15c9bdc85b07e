// What verify says about milestones, cycles, flags and run-once keys.

#include "analyze/verify/checks.h"
#include "tests/unit/analyze/image_fixture.h"

namespace bootforge::analyze::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string list(const std::string& name) { return "[\"" + name + "\"]"; }

/// Version 3, with a flag that is required, one that disables, and whether it runs once.
Text flagged(const std::string& required, const std::string& disabling) {
  Text text =
      thirdVersion(",\n\"required_flags\": " + required + ",\n\"disabling_flags\": " + disabling);
  return text;
}

Text runOnce(const std::string& version) {
  return Text{.version = "3",
              .metadata = ",\"run_once\":true,\"plugin_version\":\"" + version + "\""};
}

class VerifyGraph : public ImageTest {
 protected:
  void plugin(const std::string& name, const std::string& required, const std::string& provided) {
    putPlugin(name + ".json", Text{.required = required, .provided = provided});
  }

  Finding cycle() const {
    Findings all = findings();
    std::erase_if(all, [](const Finding& finding) { return finding.rule->name != "cycle"; });
    EXPECT_EQ(all.size(), 1U);
    return all.empty() ? Finding() : all.front();
  }
};

TEST_F(VerifyGraph, MilestoneThatNobodyProvidesStandsAtItsFirstRequirerInLinkingOrder) {
  plugin("a", R"(["there", "network-pu"])", list("there"));
  plugin("b", R"(["network-pu"])", list("network-up"));
  readInThisOrder({"b.json", "a.json"});
  EXPECT_THAT(told("milestone-unprovided"),
              ElementsAre("warning milestone-unprovided PLUGINS/b.json:3:14 network-pu: the "
                          "milestone \"network-pu\" is not provided by any plugin"));
  EXPECT_EQ(helpOf("milestone-unprovided"), "Did you mean \"network-up\"?");
  readInThisOrder({"a.json", "b.json"});
  EXPECT_THAT(told("milestone-unprovided"),
              ElementsAre("warning milestone-unprovided PLUGINS/a.json:3:23 network-pu: the "
                          "milestone \"network-pu\" is not provided by any plugin"));
}

TEST_F(VerifyGraph, EveryMilestoneThatNobodyProvidesIsFound) {
  plugin("a", R"(["x", "y"])", "[]");
  plugin("b", R"(["z"])", "[]");
  EXPECT_THAT(told(),
              ElementsAre(HasSubstr("PLUGINS/a.json:3:14 x:"), HasSubstr("PLUGINS/a.json:3:19 y:"),
                          HasSubstr("PLUGINS/b.json:3:14 z:")));
}

TEST_F(VerifyGraph, RejectedDescriptionProvidesNothingAndRequiresNothing) {
  putPlugin("a.json", Text{.required = list("x"), .provided = list("y"), .start = "1"});
  plugin("b", list("y"), "[]");
  EXPECT_THAT(told("milestone-unprovided"), ElementsAre(HasSubstr("PLUGINS/b.json:3:14 y:")));
}

TEST_F(VerifyGraph, LeftOutRequirersDoNotCount) {
  plugin("a", list("x"), "[]");
  plugin("b", list("x"), "[]");
  plugin("c", list("y"), "[]");
  options_.selection.denied = {"a", "c"};
  readInThisOrder({"a.json", "b.json", "c.json"});
  EXPECT_THAT(told("milestone-unprovided"), ElementsAre(HasSubstr("PLUGINS/b.json:3:14 x:")));
}

TEST_F(VerifyGraph, InjectionRequiresAtItsLine) {
  put("/etc/nimbus/bootforge/debug.conf", "\n  one::x:true\ntwo:y:x:true\n");
  EXPECT_THAT(told("milestone-unprovided"),
              ElementsAre("warning milestone-unprovided /etc/nimbus/bootforge/debug.conf:3:1 x: "
                          "the milestone \"x\" is not provided by any plugin"));
}

TEST_F(VerifyGraph, MilestoneOfWhichAllProvidersAreLeftOutIsANote) {
  plugin("a", "[]", R"(["x", "y", "x"])");
  plugin("b", "[]", list("y"));
  plugin("c", R"(["x", "y"])", "[]");
  options_.selection.denied = {"a"};
  EXPECT_THAT(told(), ElementsAre("note plugin-left-out PLUGINS/a.json a: the plugin does not run: "
                                  "it is on the deny list",
                                  "note milestone-left-out PLUGINS/c.json:3:14 x: all that provide "
                                  "the milestone \"x\" are left out: a"));
}

TEST_F(VerifyGraph, MilestoneOfWhichTheOnlyProviderHasRunIsANote) {
  Text text = runOnce("7");
  text.provided = list("x");
  putPlugin("a.json", text);
  plugin("b", list("x"), "[]");
  options_.selection.runOnce = {"a7"};
  EXPECT_THAT(told(), ElementsAre("note plugin-left-out PLUGINS/a.json a: the plugin does not run: "
                                  "its version '7' has already been run",
                                  "note milestone-left-out PLUGINS/b.json:3:14 x: all that provide "
                                  "the milestone \"x\" are left out: a"));
}

TEST_F(VerifyGraph, CycleNamesItsMembersAShortestChainAndWhoIsBlocked) {
  // a waits for b and c, b for a, c for b: the shortest chain is that of a and b.
  plugin("a", R"(["b-up", "c-up"])", list("a-up"));
  plugin("b", list("a-up"), list("b-up"));
  plugin("c", list("b-up"), list("c-up"));
  // Two behind them, of which one waits for the other.
  plugin("d", list("c-up"), list("d-up"));
  plugin("e", list("d-up"), "[]");
  plugin("f", "[]", "[]");
  EXPECT_THAT(told(), ElementsAre("error cycle PLUGINS/a.json:3:14 a: plugins wait for each other: "
                                  "a -> b-up -> b -> a-up -> a"));
  const Finding found = cycle();
  EXPECT_THAT(found.members, ElementsAre("a", "b", "c"));
  EXPECT_THAT(found.cycle, ElementsAre("a", "b-up", "b", "a-up", "a"));
  EXPECT_EQ(found.blocked, 2U);
  EXPECT_EQ(found.help, "2 more wait behind them.");
}

TEST_F(VerifyGraph, CycleStandsAtItsFirstMemberThoughTheShortestChainIsElsewhere) {
  // a -> b -> c -> a, and c -> b -> c, which is shorter.
  plugin("a", list("b-up"), list("a-up"));
  plugin("b", R"(["c-up"])", list("b-up"));
  plugin("c", R"(["a-up", "b-up"])", list("c-up"));
  const Finding found = cycle();
  EXPECT_EQ(found.file, std::string(kPlugins) + "/a.json");
  EXPECT_EQ(found.line, 3U);
  EXPECT_EQ(found.column, 14U);
  EXPECT_THAT(found.members, ElementsAre("a", "b", "c"));
  EXPECT_THAT(found.cycle, ElementsAre("b", "c-up", "c", "b-up", "b"));
  EXPECT_EQ(found.blocked, 0U);
}

TEST_F(VerifyGraph, ShortestChainIsFoundPastAMemberThatIsOnNoneWithoutTheFirst) {
  // a -> r -> b -> p -> a is looked at first. Without a, b stands between two rings, on neither.
  plugin("a", list("r-up"), list("a-up"));
  plugin("b", list("p-up"), list("b-up"));
  plugin("p", R"(["a-up", "q-up"])", list("p-up"));
  plugin("q", list("p-up"), list("q-up"));
  plugin("r", R"(["b-up", "s-up"])", list("r-up"));
  plugin("s", list("r-up"), list("s-up"));
  const Finding found = cycle();
  EXPECT_THAT(found.members, ElementsAre("a", "b", "p", "q", "r", "s"));
  EXPECT_THAT(found.cycle, ElementsAre("p", "q-up", "q", "p-up", "p"));
}

TEST_F(VerifyGraph, PluginThatWaitsForItselfIsACycle) {
  plugin("a", list("x"), list("x"));
  const Finding found = cycle();
  EXPECT_THAT(found.members, ElementsAre("a"));
  EXPECT_THAT(found.cycle, ElementsAre("a", "x", "a"));
}

TEST_F(VerifyGraph, EachGroupIsACycleOfItsOwn) {
  plugin("a", list("b-up"), list("a-up"));
  plugin("b", list("a-up"), list("b-up"));
  plugin("c", R"(["c-up", "a-up"])", list("c-up"));
  EXPECT_THAT(told(), ElementsAre("error cycle PLUGINS/a.json:3:14 a: plugins wait for each other: "
                                  "a -> b-up -> b -> a-up -> a",
                                  "error cycle PLUGINS/c.json:3:14 c: plugins wait for each other: "
                                  "c -> c-up -> c"));
}

TEST_F(VerifyGraph, LeftOutPluginClosesNoCycle) {
  plugin("a", list("b-up"), list("a-up"));
  plugin("b", list("a-up"), list("b-up"));
  options_.selection.denied = {"b"};
  EXPECT_THAT(told("cycle"), IsEmpty());
}

TEST_F(VerifyGraph, LongRingIsFound) {
  constexpr int kCount = 2000;
  for (int i = 0; i < kCount; ++i) {
    plugin("p" + std::to_string(i), list("m" + std::to_string((i + 1) % kCount)),
           list("m" + std::to_string(i)));
  }
  const Finding found = cycle();
  EXPECT_EQ(found.members.size(), 2000U);
  EXPECT_EQ(found.cycle.size(), 4001U);
  EXPECT_EQ(found.cycle.front(), "p0");
  EXPECT_EQ(found.cycle.back(), "p0");
}

TEST_F(VerifyGraph, FlagThatIsRequiredAndDisablesIsFoundWithEachFlagOnce) {
  putPlugin("a.json", flagged(R"(["x", "y", "z"])", R"(["y", "w", "x", "y"])"));
  options_.selection.bootFlags = {"x", "y", "z"};
  EXPECT_THAT(told("flags-contradict"),
              ElementsAre("error flags-contradict PLUGINS/a.json:6:21 a: the flag \"y\" is "
                          "required, and disables the plugin",
                          "error flags-contradict PLUGINS/a.json:6:31 a: the flag \"x\" is "
                          "required, and disables the plugin"));
}

TEST_F(VerifyGraph, FlagsThatDoNotContradictAreFine) {
  putPlugin("a.json", flagged(R"(["x"])", R"(["y"])"));
  options_.selection.bootFlags = {"x"};
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyGraph, EveryReasonForLeavingAPluginOutIsSaid) {
  putPlugin("both.json", flagged(R"(["b", "a"])", R"(["y", "x"])"));
  putPlugin("denied.json", flagged(R"(["b"])", "[]"));
  putPlugin("one.json", flagged("[]", R"(["x"])"));
  options_.selection.bootFlags = {"x", "y"};
  options_.selection.denied = {"denied"};
  const std::string head = "the plugin does not run: ";
  EXPECT_THAT(
      told(),
      ElementsAre(
          "note plugin-left-out PLUGINS/both.json both: " + head +
              "disabled by the boot flags x, y; missing the required boot flags a, "
              "b",
          "note plugin-left-out PLUGINS/denied.json denied: " + head + "it is on the deny list",
          "note plugin-left-out PLUGINS/one.json one: " + head + "disabled by the boot flag x"));
}

TEST_F(VerifyGraph, UnusualRunOnceKeyIsFound) {
  putPlugin("a b.json", runOnce("1:\xC3\xA9"));
  putPlugin("c.json", runOnce("1.0-r_2+3"));
  EXPECT_THAT(told("run-once-unusual"),
              ElementsAre("warning run-once-unusual PLUGINS/a b.json a b: the run-once key \"a "
                          "b1:\xC3\xA9\" is kept as \"ab1\", so the plugin runs every time"));
}

TEST_F(VerifyGraph, SecondPluginWithARunOnceKeyCollidesAndIsLeftOut) {
  putPlugin("a.json", runOnce("12"));
  putPlugin("a1.json", runOnce("2"));
  readInThisOrder({"a1.json", "a.json"});
  EXPECT_THAT(told(),
              ElementsAre("note plugin-left-out PLUGINS/a.json a: the plugin does not run: its "
                          "version '12' has already been run",
                          "warning run-once-collision PLUGINS/a.json a: the run-once key \"a12\" "
                          "is also that of PLUGINS/a1.json"));
}

TEST_F(VerifyGraph, CleanedKeysCollideThoughBothPluginsRun) {
  putPlugin("a.json", runOnce("1:2"));
  putPlugin("a1.json", runOnce("2"));
  readInThisOrder({"a1.json", "a.json"});
  EXPECT_THAT(told("run-once-collision"), ElementsAre(HasSubstr("PLUGINS/a.json a:")));
  EXPECT_THAT(told("plugin-left-out"), IsEmpty());
}

TEST_F(VerifyGraph, KeysCollideAcrossBootsThoughOnePluginIsLeftOutOfThisOne) {
  putPlugin("a.json", runOnce("12"));
  putPlugin("a1.json", runOnce("2"));
  options_.selection.denied = {"a1"};
  readInThisOrder({"a1.json", "a.json"});
  EXPECT_THAT(told("run-once-collision"), ElementsAre(HasSubstr("PLUGINS/a.json a:")));
}

TEST_F(VerifyGraph, PluginsThatRunInEveryBootHaveNoKey) {
  putPlugin("a b.json", thirdVersion());
  putPlugin("liba b.json", thirdVersion());
  EXPECT_THAT(told("run-once-unusual"), IsEmpty());
  EXPECT_THAT(told("run-once-collision"), IsEmpty());
}

}  // namespace
}  // namespace bootforge::analyze::test
