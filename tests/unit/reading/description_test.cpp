#include "reading/description.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "reading/nearest.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Part = Description::Part;

Description read(const std::string& text) { return readDescription(JsonText(text)); }

std::vector<std::string> textsOf(const Description::Strings& strings) {
  std::vector<std::string> texts;
  for (const PlacedString& string : strings) {
    texts.push_back(string.text + '@' + std::to_string(string.at));
  }
  return texts;
}

std::vector<std::string> faultsOf(const Description& description) {
  std::vector<std::string> texts;
  for (const Description::Fault& fault : description.faults) {
    texts.push_back(fault.reason + '@' + std::to_string(fault.at));
  }
  return texts;
}

std::vector<std::string> remarksIn(const std::string& text) {
  static const char* const kKinds[] = {"unknown", "duplicate", "ignored", "trailing"};
  const JsonText json(text);
  std::vector<std::string> texts;
  for (const DescriptionRemark& remark : remarksOn(json, readDescription(json))) {
    texts.push_back(kKinds[static_cast<int>(remark.kind)] + (' ' + remark.key) + '@' +
                    std::to_string(remark.at) + (remark.nearest.empty() ? "" : " ") +
                    remark.nearest);
  }
  return texts;
}

TEST(ReadDescription, EveryPartIsReadWithItsPlaces) {
  const Description description = read(
      R"({"metadata": {"version": 4, "requires": ["r"], "provides": ["p", "q"],)"
      R"("required_flags": ["f"], "disabling_flags": ["d"], "run_once": true,)"
      R"("plugin_version": "1.2"}, "operations": {"start": ["s"], "apply_host_profile": ["h"]}})");
  EXPECT_THAT(faultsOf(description), IsEmpty());
  EXPECT_EQ(description.apiVersion, 4);
  EXPECT_THAT(textsOf(description.requires_), ElementsAre("r@41"));
  EXPECT_THAT(textsOf(description.provides), ElementsAre("p@60", "q@65"));
  EXPECT_THAT(textsOf(description.requiredFlags), ElementsAre("f@89"));
  EXPECT_THAT(textsOf(description.disablingFlags), ElementsAre("d@115"));
  EXPECT_TRUE(description.runOnce);
  EXPECT_EQ(description.pluginVersion, "1.2");
  EXPECT_THAT(textsOf(description.startCommands), ElementsAre("s@189"));
  ASSERT_TRUE(description.applyHostProfileCommands);
  EXPECT_THAT(textsOf(*description.applyHostProfileCommands), ElementsAre("h@218"));
}

TEST(ReadDescription, OldVersionReadsNothingOfLaterOnes) {
  const Description description =
      read(R"({"metadata":{"version":1,"requires":[],"provides":[],"run_once":7,)"
           R"("required_flags":7},"operations":{"start":[],"apply_host_profile":7}})");
  EXPECT_THAT(faultsOf(description), IsEmpty());
  EXPECT_FALSE(description.runOnce);
  EXPECT_FALSE(description.applyHostProfileCommands);
}

TEST(ReadDescription, FaultsAreInTheOrderOfThePartsWhateverTheirOrderInTheText) {
  const Description description =
      read(R"({"operations":{"apply_host_profile":1,"start":2},"metadata":{"plugin_version":3,)"
           R"("run_once":4,"disabling_flags":5,"required_flags":6,"provides":7,"requires":8,)"
           R"("version":3}})");
  std::vector<Part> parts;
  for (const Description::Fault& fault : description.faults) parts.push_back(fault.part);
  EXPECT_THAT(parts,
              ElementsAre(Part::Requires, Part::Provides, Part::RequiredFlags, Part::DisablingFlags,
                          Part::RunOnce, Part::PluginVersion, Part::Start, Part::ApplyHostProfile));
  EXPECT_THAT(faultsOf(description),
              ElementsAre("metadata is corrupt (unable to parse requires)@156",
                          "metadata is corrupt (unable to parse provides)@143",
                          "metadata is corrupt (unable to parse required_flags)@130",
                          "metadata is corrupt (unable to parse disabling_flags)@111",
                          "metadata is corrupt (unable to parse run_once)@91",
                          "metadata is corrupt (unable to parse plugin_version)@78",
                          "operations is corrupt (unable to parse start)@46",
                          "operations is corrupt (unable to parse apply-host-profile)@36"));
}

TEST(ReadDescription, EachBadElementOfAListIsAFaultAndTheListIsEmpty) {
  const Description description =
      read(R"({"metadata":{"version":1,"requires":["a",1,"b",null],"provides":[]},)"
           R"("operations":{"start":[]}})");
  EXPECT_THAT(faultsOf(description),
              ElementsAre("requires tag is not a string@41", "requires tag is not a string@47"));
  EXPECT_THAT(description.requires_, IsEmpty());
}

TEST(ReadDescription, IsGoodUpToItsFirstFault) {
  const Description description =
      read(R"({"metadata":{"version":1,"requires":[],"provides":1},"operations":{"start":[]}})");
  EXPECT_TRUE(description.isGoodUpTo(Part::Requires));
  EXPECT_FALSE(description.isGoodUpTo(Part::Provides));
  EXPECT_FALSE(description.isGoodUpTo(Part::Start));
}

TEST(ReadDescription, TextThatIsNoJsonHasOneFaultAtItsPlace) {
  EXPECT_THAT(faultsOf(read("[")), ElementsAre("plugin root is not an object@1"));
  EXPECT_THAT(faultsOf(read(" 1")), ElementsAre("plugin root is not an object@1"));
}

TEST(ReadDescription, OfEqualKeysTheLastOneCounts) {
  const Description description = read(
      R"({"metadata": 1, "operations": {"start": ["a"], "start": ["b"]}, "metadata": {"version": 7,)"
      R"("requires": ["x"], "provides": [], "\u0076ersion": 2, "requires": ["y"]}})");
  EXPECT_THAT(faultsOf(description), IsEmpty());
  EXPECT_EQ(description.apiVersion, 2);
  EXPECT_THAT(textsOf(description.requires_), ElementsAre("y@157"));
  EXPECT_THAT(textsOf(description.startCommands), ElementsAre("b@57"));
}

TEST(ReadDescription, ReasonOfAnUnreadableFileTellsLargeOnes) {
  EXPECT_STREQ(unreadableDescription(ENOENT), "no such file or directory");
  EXPECT_STREQ(unreadableDescription(EACCES), "no such file or directory");
  EXPECT_STREQ(unreadableDescription(EFBIG), "larger than 16 MiB");
}

TEST(RemarksOn, KeysAreJudgedByTheVersion) {
  EXPECT_THAT(remarksIn(R"({"metadata":{"version":2,"run_once":1},"operations":)"
                        R"({"apply_host_profile":[]},"meta":0} x)"),
              ElementsAre("trailing @88", "unknown meta@78", "ignored run_once@25"));
  EXPECT_THAT(remarksIn(R"({"metadata":{"version":9,"run_once":1,"Version":0,"version":9}})"),
              ElementsAre("unknown Version@38 version", "duplicate version@50"));
  EXPECT_THAT(remarksIn("["), IsEmpty());
  EXPECT_THAT(remarksIn("[] x"), ElementsAre("trailing @3"));
}

TEST(NearestNames, NearestFirstEqualsByNameAtMostThree) {
  EXPECT_THAT(nearestNames("netwrok", {"network", "networks", "net", "zebra"}),
              ElementsAre("network", "networks"));
  EXPECT_THAT(nearestNames("abcd", {"abce", "abcf", "abca", "abcb"}),
              ElementsAre("abca", "abcb", "abce"));
  EXPECT_THAT(nearestNames("x", {"y", "xy", "abc"}), ElementsAre("xy", "y"));
  EXPECT_THAT(nearestNames("a", {}), IsEmpty());
}

TEST(NearestNames, CaseAndSeparatorsCountForNothing) {
  EXPECT_THAT(nearestNames("NETWORK_UP", {"network-up"}), ElementsAre("network-up"));
  EXPECT_THAT(nearestNames("host set", {"host-set", "host set"}), ElementsAre("host-set"));
  EXPECT_THAT(nearestNames("host set", {"host set", "host-set"}), ElementsAre("host-set"));
}

TEST(NearestNames, OneNameIsSaidOnce) {
  EXPECT_THAT(nearestNames("ab", {"ac", "ac"}), ElementsAre("ac"));
}

TEST(EditDistance, CountsLettersAndSwapsUpToALimit) {
  EXPECT_EQ(editDistance("", "", 3), 0U);
  EXPECT_EQ(editDistance("abc", "abc", 3), 0U);
  EXPECT_EQ(editDistance("abc", "acb", 3), 1U);
  EXPECT_EQ(editDistance("ab", "ba", 3), 1U);
  EXPECT_EQ(editDistance("xab", "ba", 3), 2U);
  EXPECT_EQ(editDistance("ab", "xba", 3), 2U);
  EXPECT_EQ(editDistance("abc", "ab", 3), 1U);
  EXPECT_EQ(editDistance("kitten", "sitting", 9), 3U);
  EXPECT_EQ(editDistance("abc", "xyz", 2), 3U);
  EXPECT_EQ(editDistance("a", "abcdefgh", 2), 3U);
}

TEST(EditDistance, LooksAtNothingInFrontOfTheNames) {
  const std::string_view text = "ba xab";
  EXPECT_EQ(editDistance(text.substr(1, 1), "xab", 3), 2U);
  EXPECT_EQ(editDistance("xab", text.substr(1, 1), 3), 2U);
}

}  // namespace
}  // namespace bootforge::test
