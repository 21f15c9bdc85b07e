// What verify says about the plugin folder and its descriptions.

#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/analyze/image_fixture.h"

namespace bootforge::analyze::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class VerifyDescriptions : public ImageTest {};

TEST_F(VerifyDescriptions, SoundImageHasNoFindings) {
  putCommand();
  Text text = thirdVersion(R"(,"required_flags":[],"disabling_flags":["x"])");
  text.provided = R"(["a"])";
  text.start = R"(["host run"])";
  text.operations = R"(,"apply_host_profile":["host run"])";
  putPlugin("a.json", text);
  putPlugin("b.json", Text{.required = R"(["a"])"});
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyDescriptions, MissingPluginFolderIsUnreadable) {
  options_.pluginDirectory = "/none";
  EXPECT_THAT(told(), ElementsAre("error folder-unreadable /none /none: the plugin folder cannot "
                                  "be read: No such file or directory"));
}

TEST_F(VerifyDescriptions, FileInThePlaceOfThePluginFolderIsUnreadable) {
  put("/none", "");
  options_.pluginDirectory = "/none";
  EXPECT_THAT(told(), ElementsAre("error folder-unreadable /none /none: the plugin folder cannot "
                                  "be read: Not a directory"));
}

TEST_F(VerifyDescriptions, EveryMissingCommandFolderIsUnreadable) {
  std::filesystem::remove_all(std::string(kRoot) + kCommands);
  const std::string reason = ": the command folder cannot be read: No such file or directory";
  EXPECT_THAT(told(),
              ElementsAre("error folder-unreadable COMMANDS COMMANDS" + reason,
                          "error folder-unreadable COMMANDS/ext COMMANDS/ext" + reason,
                          "error folder-unreadable COMMANDS/int COMMANDS/int" + reason,
                          "error folder-unreadable COMMANDS/int/ext COMMANDS/int/ext" + reason));
}

TEST_F(VerifyDescriptions, NamedPluginsAreLookedAtWithoutTheFolder) {
  putPlugin("bad.txt", "");
  putPlugin("good.json", Text{});
  readInThisOrder({"good.json"});
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyDescriptions, WhatIsNoRegularFileIsUnreadable) {
  const std::string folder = std::string(kRoot) + kPlugins;
  std::filesystem::create_directory(folder + "/folder.json");
  ASSERT_EQ(::mkfifo((folder + "/pipe.json").c_str(), 0644), 0);
  std::filesystem::create_symlink("nowhere", folder + "/link.json");
  putPlugin("large.json", "{}");
  std::filesystem::resize_file(folder + "/large.json", (16U << 20) + 1);
  EXPECT_THAT(told("description-unreadable"),
              ElementsAre("error description-unreadable PLUGINS/folder.json folder: no such file "
                          "or directory (Is a directory)",
                          "error description-unreadable PLUGINS/large.json large: larger than 16 "
                          "MiB",
                          "error description-unreadable PLUGINS/link.json link: no such file or "
                          "directory",
                          "error description-unreadable PLUGINS/pipe.json pipe: no such file or "
                          "directory (No such device or address)"));
}

TEST_F(VerifyDescriptions, LinkThatLeadsToADescriptionInsideTheRootIsRead) {
  put("/elsewhere/a", Text{.version = "7"}.json());
  std::filesystem::create_symlink("/elsewhere/a", std::string(kRoot) + kPlugins + "/a.json");
  EXPECT_THAT(told(), ElementsAre("error description-invalid PLUGINS/a.json:2:12 a: Unsupported "
                                  "API version"));
}

TEST_F(VerifyDescriptions, TextThatIsNoJsonHasThePlaceOfItsFault) {
  putPlugin("a.json", "{\"metadata\": {\n  \"version\": }}");
  putPlugin("b.json", "");
  putPlugin("c.json", "{\n\"metadata\"");
  putPlugin("d.json", "[1,]");
  EXPECT_THAT(
      told(),
      ElementsAre("error description-syntax PLUGINS/a.json:2:14 a: plugin root is not an object "
                  "(syntax error)",
                  "error description-syntax PLUGINS/b.json:1:1 b: plugin root is not an object "
                  "(incomplete JSON)",
                  "error description-syntax PLUGINS/c.json:2:11 c: plugin root is not an object "
                  "(incomplete JSON)",
                  "error description-syntax PLUGINS/d.json:1:4 d: plugin root is not an object "
                  "(syntax error)"));
}

TEST_F(VerifyDescriptions, RootThatIsNoObjectIsInvalidNotBadSyntax) {
  putPlugin("a.json", "\n  [1]");
  EXPECT_THAT(told(), ElementsAre("error description-invalid PLUGINS/a.json:2:3 a: plugin root is "
                                  "not an object"));
}

TEST_F(VerifyDescriptions, SectionThatIsMissingStandsAtTheRootAndOneThatIsNoObjectAtItself) {
  putPlugin("a.json", " {}");
  putPlugin("b.json", "{\"metadata\": 1,\n\"operations\": []}");
  EXPECT_THAT(
      told(),
      ElementsAre("error description-invalid PLUGINS/a.json:1:2 a: invalid metadata interface",
                  "error description-invalid PLUGINS/a.json:1:2 a: invalid operations interface",
                  "error description-invalid PLUGINS/b.json:1:14 b: invalid metadata interface",
                  "error description-invalid PLUGINS/b.json:2:15 b: invalid operations interface"));
}

TEST_F(VerifyDescriptions, EveryFaultOfADescriptionIsFound) {
  putPlugin("a.json", R"({"metadata": {
"version": 4,
"requires": "x",
"provides": ["a", 1, "b", {}],
"required_flags": 1,
"disabling_flags": [null],
"run_once": "yes",
"plugin_version": 1},
"operations": {
"start": [["x"], "y", 2],
"apply_host_profile": {}}})");
  const std::string head = "error description-invalid PLUGINS/a.json:";
  EXPECT_THAT(
      told(),
      ElementsAre(head + "3:13 a: metadata is corrupt (unable to parse requires)",
                  head + "4:19 a: provides tag is not a string",
                  head + "4:27 a: provides tag is not a string",
                  head + "5:19 a: metadata is corrupt (unable to parse required_flags)",
                  head + "6:21 a: disabling_flags tag is not a string",
                  head + "7:13 a: metadata is corrupt (unable to parse run_once)",
                  head + "8:19 a: metadata is corrupt (unable to parse plugin_version)",
                  head + "10:11 a: command is not a string",
                  head + "10:23 a: command is not a string",
                  head + "11:23 a: operations is corrupt (unable to parse apply-host-profile)"));
}

TEST_F(VerifyDescriptions, WhatIsMissingStandsAtTheObjectThatLacksIt) {
  putPlugin("a.json", "{\"metadata\":\n {\"version\": 3},\n\"operations\":\n  {}}");
  const std::string head = "error description-invalid PLUGINS/a.json:";
  EXPECT_THAT(told(),
              ElementsAre(head + "2:2 a: metadata is corrupt (unable to parse plugin_version)",
                          head + "2:2 a: metadata is corrupt (unable to parse provides)",
                          head + "2:2 a: metadata is corrupt (unable to parse requires)",
                          head + "2:2 a: metadata is corrupt (unable to parse run_once)",
                          head + "4:3 a: operations is corrupt (unable to parse start)"));
}

TEST_F(VerifyDescriptions, WithoutAVersionNothingIsSaidThatDependsOnIt) {
  const std::string more = R"(,"run_once":1,"required_flags":2,"plugin_version":3)";
  putPlugin("a.json", Text{.version = "\"3\"", .metadata = more});
  putPlugin("b.json", Text{.version = "5", .metadata = more});
  putPlugin("c.json", Text{.version = "0", .operations = R"(,"apply_host_profile":1)"});
  EXPECT_THAT(
      told(),
      ElementsAre("error description-invalid PLUGINS/a.json:2:12 a: metadata is corrupt "
                  "(unable to parse version)",
                  "error description-invalid PLUGINS/b.json:2:12 b: Unsupported API version",
                  "error description-invalid PLUGINS/c.json:2:12 c: Unsupported API "
                  "version"));
}

TEST_F(VerifyDescriptions, VersionIsTruncatedBeforeItIsJudged) {
  putPlugin("a.json", Text{.version = "2.9"});
  putPlugin("b.json", Text{.version = "4.999", .metadata = thirdVersion().metadata});
  putPlugin("c.json", Text{.version = "0.999"});
  putPlugin("d.json", Text{.version = "1e300"});
  EXPECT_THAT(
      told(),
      ElementsAre("error description-invalid PLUGINS/c.json:2:12 c: Unsupported API version",
                  "error description-invalid PLUGINS/d.json:2:12 d: Unsupported API "
                  "version"));
}

TEST_F(VerifyDescriptions, UnknownKeysOfEveryObjectAreNamedWithTheNearestKnownOne) {
  putPlugin("a.json", R"({"comment": 0, "metadata": {"version": 1, "require": [],
"requires": [], "provides": []}, "operations": {"start": [], "zzzzzz": 1}})");
  const std::string head = "warning description-unknown-key PLUGINS/a.json:";
  EXPECT_THAT(told(), ElementsAre(head + "1:2 a: the key \"comment\" is not known",
                                  head + "1:43 a: the key \"require\" is not known",
                                  head + "2:62 a: the key \"zzzzzz\" is not known"));
  std::vector<std::string> help;
  for (const Finding& finding : findings()) help.push_back(finding.help);
  EXPECT_THAT(help, ElementsAre("", "Did you mean \"requires\"?", ""));
}

TEST_F(VerifyDescriptions, SecondOfTwoEqualKeysIsFoundAndTheLastOneCounts) {
  putPlugin("a.json", R"({"metadata": {"version": 1,
"requires": [],
"requires": [],
"requires": 1,
"provides": []}, "operations": {"start": []}})");
  EXPECT_THAT(told(), ElementsAre("warning description-duplicate-key PLUGINS/a.json:3:1 a: the key "
                                  "\"requires\" is given twice",
                                  "warning description-duplicate-key PLUGINS/a.json:4:1 a: the key "
                                  "\"requires\" is given twice",
                                  "error description-invalid PLUGINS/a.json:4:13 a: metadata is "
                                  "corrupt (unable to parse requires)"));
}

TEST_F(VerifyDescriptions, KeysOfLaterVersionsAreIgnored) {
  putPlugin("a.json", Text{.metadata = ",\n\"run_once\": 1, \"required_flags\": 2",
                           .operations = ",\n\"apply_host_profile\": 3"});
  putPlugin("b.json", Text{.version = "2",
                           .metadata = ",\"plugin_version\":\"\"",
                           .operations = ",\"apply_host_profile\": []"});
  EXPECT_THAT(told(), ElementsAre("warning description-ignored-key PLUGINS/a.json:5:1 a: the key "
                                  "\"run_once\" means nothing in version 1",
                                  "warning description-ignored-key PLUGINS/a.json:5:16 a: the key "
                                  "\"required_flags\" means nothing in version 1",
                                  "warning description-ignored-key PLUGINS/a.json:8:1 a: the key "
                                  "\"apply_host_profile\" means nothing in version 1",
                                  "warning description-ignored-key PLUGINS/b.json:4:16 b: the key "
                                  "\"plugin_version\" means nothing in version 2"));
}

TEST_F(VerifyDescriptions, TextBehindTheValueIsFoundAndCommentsAreNone) {
  putPlugin("a.json", Text{}.json() + " // comment\n /* another */ {}");
  putPlugin("b.json", Text{}.json() + " // comment\n /* another */ \n");
  EXPECT_THAT(told(), ElementsAre("warning description-trailing PLUGINS/a.json:8:16 a: text behind "
                                  "the description is ignored"));
}

TEST_F(VerifyDescriptions, ColumnsAreCharacters) {
  // Two, three and four bytes a character, and bytes that are no UTF-8: one character each.
  putPlugin("a.json", "{\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\": 1, \"metadata\": 1}");
  putPlugin("b.json", "{\"\xFF\x80\x80\": 1, \"metadata\": 1}");
  EXPECT_THAT(told("description-invalid"),
              ElementsAre("error description-invalid PLUGINS/a.json:1:1 a: invalid operations "
                          "interface",
                          "error description-invalid PLUGINS/a.json:1:24 a: invalid metadata "
                          "interface",
                          "error description-invalid PLUGINS/b.json:1:1 b: invalid operations "
                          "interface",
                          "error description-invalid PLUGINS/b.json:1:24 b: invalid metadata "
                          "interface"));
}

TEST_F(VerifyDescriptions, EntriesThatAreNoPluginsAreOfUnknownType) {
  putPlugin("README", "");
  putPlugin("a.JSON", "");
  putPlugin("a.json.bak", "");
  putPlugin(".hidden", "");
  putPlugin("fine.debug", "");
  EXPECT_THAT(told(),
              ElementsAre("warning plugin-unknown-type PLUGINS/.hidden .hidden: ignoring plugin "
                          "'.hidden' of unknown type (hidden)...",
                          "warning plugin-unknown-type PLUGINS/README README: ignoring plugin "
                          "'README' of unspecified type...",
                          "warning plugin-unknown-type PLUGINS/a.JSON a.JSON: ignoring plugin "
                          "'a.JSON' of unknown type (JSON)...",
                          "warning plugin-unknown-type PLUGINS/a.json.bak a.json.bak: ignoring "
                          "plugin 'a.json.bak' of unknown type (bak)..."));
}

TEST_F(VerifyDescriptions, SecondEntryWithAPluginOfTheSameNameIsFound) {
  putPlugin("liba.json", Text{});
  putPlugin("a.json", Text{});
  readInThisOrder({"liba.json", "a.json"});
  EXPECT_THAT(told(), ElementsAre("warning plugin-same-name PLUGINS/a.json a: the plugin \"a\" is "
                                  "also that of PLUGINS/liba.json"));
}

TEST_F(VerifyDescriptions, RejectedDescriptionsHaveNoName) {
  putPlugin("liba.json", Text{.version = "9"});
  putPlugin("a.json", Text{});
  EXPECT_THAT(told("plugin-same-name"), IsEmpty());
}

TEST_F(VerifyDescriptions, InjectionsOfADebugEntryHaveItsName) {
  put("/etc/nimbus/bootforge/debug.conf", "a: : :true\n");
  putPlugin("a.debug", "");
  putPlugin("b.debug", "");
  putPlugin("a.json", Text{});
  putPlugin("b.json", Text{});
  readInThisOrder({"a.json", "a.debug", "b.json", "b.debug"});
  EXPECT_THAT(told("plugin-same-name"),
              ElementsAre("warning plugin-same-name PLUGINS/a.debug a: the plugin \"a\" is also "
                          "that of PLUGINS/a.json"));
}

TEST_F(VerifyDescriptions, FindingsAreOrderedByFileLineColumnAndRule) {
  putPlugin("b.json", "x");
  putPlugin("a.json", "{\"metadata\": 1, \"operations\": 1} x");
  putPlugin("a", "");
  const std::string prefix = "PLUGINS/";
  EXPECT_THAT(told(), ElementsAre(testing::HasSubstr("PLUGINS/a a"),
                                  testing::HasSubstr("PLUGINS/a.json:1:14 "),
                                  testing::HasSubstr("PLUGINS/a.json:1:31 "),
                                  testing::HasSubstr("description-trailing PLUGINS/a.json:1:34 "),
                                  testing::HasSubstr("PLUGINS/b.json:1:1 ")));
}

}  // namespace
}  // namespace bootforge::analyze::test
