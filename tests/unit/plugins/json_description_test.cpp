// What a description means.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "graph/barrier_registry.h"
#include "graph/init_barrier.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/support/barriers.h"
#include "tests/unit/plugins/description.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class JsonDescription : public testing::Test {
 protected:
  void SetUp() override { doubles::reset(); }
  void TearDown() override { EXPECT_THAT(doubles::records(), IsEmpty()); }
};

TEST_F(JsonDescription, NeedsNoMoreThanItsMandatoryMembers) {
  const auto plugin = readPlugin(
      R"({"metadata": {"version": 1, "requires": [], "provides": []}, "operations": {"start": []}})");
  EXPECT_EQ(plugin->name(), "network");
  EXPECT_EQ(plugin->apiVersion(), 1);
  EXPECT_EQ(plugin->schedulingClass(), 1U);
  EXPECT_FALSE(plugin->runOnce());
  EXPECT_EQ(plugin->pluginVersion(), "");
  EXPECT_THAT(plugin->requiredFlags(), IsEmpty());
  EXPECT_THAT(plugin->disablingFlags(), IsEmpty());
  EXPECT_FALSE(plugin->supportsApplyHostProfile());
  EXPECT_EQ(plugin->dotAttributes(), "");
  EXPECT_EQ(prerequisitesOf(*plugin), "");
  EXPECT_EQ(dependentsOf(*plugin), "");
}

TEST_F(JsonDescription, OfTheThirdVersionHasAllMembers) {
  const auto plugin = readPlugin(R"({
      "metadata": {
        "version": 3,
        "requires": ["all-a"],
        "provides": ["all-b"],
        "required_flags": ["f", "e", "f"],
        "disabling_flags": ["d"],
        "run_once": true,
        "plugin_version": "1.0 beta"
      },
      "operations": {"start": ["a"], "apply_host_profile": ["b"]}
    })");
  EXPECT_EQ(plugin->apiVersion(), 3);
  EXPECT_TRUE(plugin->runOnce());
  EXPECT_EQ(plugin->pluginVersion(), "1.0 beta");
  EXPECT_THAT(plugin->requiredFlags(), ElementsAre("e", "f"));
  EXPECT_THAT(plugin->disablingFlags(), ElementsAre("d"));
  EXPECT_TRUE(plugin->supportsApplyHostProfile());
  EXPECT_EQ(prerequisitesOf(*plugin), "all-a");
  EXPECT_EQ(dependentsOf(*plugin), "all-b");
}

TEST_F(JsonDescription, LinksItsMilestonesInTheirOrder) {
  const auto plugin =
      makePlugin({.required = R"(["o3", "o1", "o2", "o1"])", .provided = R"(["p2", "p1"])"});
  EXPECT_EQ(prerequisitesOf(*plugin), "o3 o1 o2 o1");
  EXPECT_EQ(dependentsOf(*plugin), "p2 p1");
  EXPECT_EQ(dependentsOf(*test::barriers().lookupBarrier("o3", false)), "network");
  EXPECT_EQ(prerequisitesOf(*test::barriers().lookupBarrier("p1", false)), "network");
}

TEST_F(JsonDescription, MayRequireWhatItProvides) {
  const auto plugin = makePlugin({.required = R"(["self"])", .provided = R"(["self"])"});
  EXPECT_EQ(prerequisitesOf(*plugin), "self");
  EXPECT_EQ(dependentsOf(*plugin), "self");
}

TEST_F(JsonDescription, UsesTheMilestonesThatAreThere) {
  InitBarrier* const known = test::barriers().lookupBarrier("known", true);
  const auto plugin = makePlugin({.required = R"(["known"])"});
  EXPECT_EQ(test::barriers().lookupBarrier("known", false), known);
  ScopedLock lock(graphLock);
  EXPECT_THAT(known->dependents(), ElementsAre(plugin.get()));
}

class JsonVersion : public JsonDescription,
                    public testing::WithParamInterface<std::pair<std::string, int>> {};

TEST_P(JsonVersion, IsTruncated) {
  const auto& [text, version] = GetParam();
  Description description = thirdVersion();
  description.version = text;
  EXPECT_EQ(makePlugin(description)->apiVersion(), version) << text;
}

INSTANTIATE_TEST_SUITE_P(Of, JsonVersion,
                         testing::ValuesIn(std::vector<std::pair<std::string, int>>{{"1", 1},
                                                                                    {"2", 2},
                                                                                    {"3", 3},
                                                                                    {"4", 4},
                                                                                    {"1.0", 1},
                                                                                    {"1.9", 1},
                                                                                    {"2.5", 2},
                                                                                    {"3.999999", 3},
                                                                                    {"4.99", 4},
                                                                                    {"4e0", 4},
                                                                                    {"0.2e1", 2},
                                                                                    {"49e-1", 4},
                                                                                    {"1E+0", 1}}));

TEST_F(JsonDescription, OfTheFirstTwoVersionsHasNoFlagsWhateverItSays) {
  for (const char* version : {"1", "2"}) {
    for (const char* value : {R"(["f"])", R"("f")", "[1]", "null", "{}"}) {
      Description description{.version = version};
      for (const char* key : {"required_flags", "disabling_flags", "run_once", "plugin_version"}) {
        description.moreMetadata +=
            (description.moreMetadata.empty() ? "\"" : ",\"") + std::string(key) + "\":" + value;
      }
      const auto plugin = makePlugin(description);
      EXPECT_THAT(plugin->requiredFlags(), IsEmpty());
      EXPECT_THAT(plugin->disablingFlags(), IsEmpty());
      EXPECT_FALSE(plugin->runOnce());
      EXPECT_EQ(plugin->pluginVersion(), "");
    }
  }
}

TEST_F(JsonDescription, OfTheThirdAndFourthVersionMayDoWithoutFlags) {
  for (const char* version : {"3", "4"}) {
    Description description = thirdVersion();
    description.version = version;
    const auto plugin = makePlugin(description);
    EXPECT_THAT(plugin->requiredFlags(), IsEmpty());
    EXPECT_THAT(plugin->disablingFlags(), IsEmpty());
  }
}

TEST_F(JsonDescription, OfTheFirstVersionNeverSupportsTheHostProfile) {
  for (const char* value : {"[]", R"(["a"])", "[1]", "null", R"("a")"}) {
    const auto plugin =
        makePlugin({.moreOperations = std::string("\"apply_host_profile\":") + value});
    EXPECT_FALSE(plugin->supportsApplyHostProfile()) << value;
  }
}

TEST_F(JsonDescription, FromTheSecondVersionOnSupportsTheHostProfileWhenItHasTheOperation) {
  for (const char* version : {"2", "3", "4"}) {
    Description description = thirdVersion();
    description.version = version;
    EXPECT_FALSE(makePlugin(description)->supportsApplyHostProfile()) << version;
    description.moreOperations = R"("apply_host_profile":[])";
    EXPECT_TRUE(makePlugin(description)->supportsApplyHostProfile()) << version;
    description.moreOperations = R"("apply_host_profile":["a b"])";
    EXPECT_TRUE(makePlugin(description)->supportsApplyHostProfile()) << version;
  }
}

TEST_F(JsonDescription, MayHoldCommentsAnywhere) {
  const auto plugin = readPlugin(R"(// before
      /* and again */ { // the root
        "metadata" /* key */ : /* value */ {
          "version": /* two */ 2, // a number
          "requires": [ /* none */ ], "provides": [ "/* no comment */", // the last one
            "// neither" ]
        },
        "operations": {"start": []} /**/
      } // after
      /* not even closed)");
  EXPECT_EQ(plugin->apiVersion(), 2);
  EXPECT_EQ(dependentsOf(*plugin), "/* no comment */ // neither");
}

// Of all lengths and with asterisks, slashes and quotes in awkward places.
TEST_F(JsonDescription, MayHoldCommentsOfAnyShape) {
  for (const std::string comment :
       {"/**/", "/***/", "/****/", "/*****/", "/* **/", "/* ** */", "/*/*/", "/*//*/", "/* /* */",
        "/*\n * \"quoted\n */", "//\n", "///\n", "// \"\n", "// /*\n", "//*/\n", "/*\\*/"}) {
    std::string text = comment;
    bool quoted = false;
    for (const char character : Description{.provided = R"(["/*a*/ // \" \\"])"}.text()) {
      text += character;
      if (character == '"' && !text.ends_with("\\\"")) quoted = !quoted;
      if (!quoted && std::string_view("{}[]:,").find(character) != std::string_view::npos) {
        text += comment;
      }
    }
    const auto plugin = readPlugin(text);
    EXPECT_EQ(dependentsOf(*plugin), "/*a*/ // \" \\") << comment;
  }
}

TEST_F(JsonDescription, EndsWithItsFirstValue) {
  for (const std::string rest : {"}", "]", " garbage", "{\"metadata\": 1}", "\"", "\xFF", "/", "/x",
                                 "/*", "/* **/", "// x"}) {
    EXPECT_EQ(readPlugin(Description().text() + rest)->apiVersion(), 1) << rest;
  }
  EXPECT_EQ(readPlugin(Description().text() + std::string("\0x", 2))->apiVersion(), 1);
}

TEST_F(JsonDescription, MayBeSurroundedByWhiteSpace) {
  EXPECT_EQ(readPlugin(" \t\r\n" + Description().text() + "\n\n")->apiVersion(), 1);
}

TEST_F(JsonDescription, MayHoldOtherMembers) {
  const auto plugin = readPlugin(R"({
      "x": null, "Metadata": 1, "start": [1],
      "metadata": {"version": 2, "requires": [], "provides": [], "start": 1, "Version": 9, "": {}},
      "operations": {"start": [], "stop": 1, "Start": 1, "apply-host-profile": 1}
    })");
  EXPECT_EQ(plugin->apiVersion(), 2);
  EXPECT_FALSE(plugin->supportsApplyHostProfile());
}

TEST_F(JsonDescription, TakesTheLastOfTwoMembersOfOneName) {
  EXPECT_EQ(makePlugin({.version = "1", .moreMetadata = R"("version":2)"})->apiVersion(), 2);
}

// Bytes that are no UTF-8 are names like any other.
TEST_F(JsonDescription, PassesTextThatIsNoUtf8) {
  for (const std::string name : {"\xFF", "a\xC3", "\xC3(", "\xC0\x80", "\xED\xA0\x80", "\x80"}) {
    const auto plugin = makePlugin({.required = "[\"" + name + "\"]"});
    EXPECT_EQ(prerequisitesOf(*plugin), name);
  }
}

TEST_F(JsonDescription, UnderstandsEscapes) {
  const auto plugin = makePlugin(
      {.provided = R"(["\"\\\/\b\f\n\r\t", "\u00e4\u20AC", "\ud83d\ude00", "a\u0000b"])"});
  EXPECT_EQ(dependentsOf(*plugin), std::string("\"\\/\b\f\n\r\t \xC3\xA4\xE2\x82\xAC "
                                               "\xF0\x9F\x98\x80 a\0b",
                                               23));
}

TEST_F(JsonDescription, MayBeLarge) {
  std::string names;
  for (int i = 0; i < 10'000; ++i)
    names += (i == 0 ? "\"large" : ",\"large") + std::to_string(i) + '"';
  const auto plugin =
      makePlugin({.required = "[" + names + "]",
                  .moreMetadata = "\"text\":\"" + std::string(5'000'000, 'x') + '"'});
  ScopedLock lock(graphLock);
  EXPECT_EQ(plugin->prerequisites().size(), 10'000U);
  EXPECT_EQ(plugin->prerequisites().back()->name(), "large9999");
}

std::string nestedArrays(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

std::string nestedObjects(std::size_t depth) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i) text += "{\"x\":";
  return text + "0" + std::string(depth, '}');
}

TEST_F(JsonDescription, MayBeNestedAThousandDeepAndMore) {
  for (const std::size_t depth : {1000U, 1500U, 4000U}) {
    EXPECT_EQ(makePlugin({.moreMetadata = "\"deep\":" + nestedArrays(depth)})->apiVersion(), 1);
    EXPECT_EQ(makePlugin({.moreMetadata = "\"deep\":" + nestedObjects(depth)})->apiVersion(), 1);
  }
}

TEST_F(JsonDescription, NestedBeyondTheLimitIsNoJson) {
  for (const std::size_t depth : {100'000U, 1'000'000U}) {
    for (const std::string& text :
         {nestedArrays(depth), nestedObjects(depth), std::string(depth, '['),
          Description{.moreMetadata = "\"deep\":" + nestedArrays(depth)}.text(),
          Description{.moreMetadata = "\"deep\":" + nestedObjects(depth)}.text()}) {
      EXPECT_EQ(rejectionOfText(text), "plugin root is not an object") << depth;
    }
  }
}

TEST_F(JsonDescription, IsNotHeldOpen) {
  const int before = countOpenDescriptors();
  const auto plugin = makePlugin(Description());
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST_F(JsonDescription, IsReadOnce) {
  const auto plugin = makePlugin({.version = "2"});
  writeFile(kDescription, "damaged");
  EXPECT_EQ(plugin->apiVersion(), 2);
}

}  // namespace
}  // namespace bootforge::test
