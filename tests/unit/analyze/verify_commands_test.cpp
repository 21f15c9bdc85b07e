// What verify says about command files and command lines.

#include <filesystem>

#include "tests/unit/analyze/image_fixture.h"

namespace bootforge::analyze::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class VerifyCommands : public ImageTest {
 protected:
  VerifyCommands() {
    put("/bin/tool", "", 0755);
    putFile("host.json", {R"("set": {"exec": ["/bin/tool", "{name}"], "timeout": 1,
"parameters": {"name": {"short": "n", "required": true}, "mode": {}, "fast": {"flag": true}}})"});
  }

  void putFile(const std::string& name, const std::vector<std::string>& commands,
               const std::string& nameSpace = "host") {
    put(std::string(kCommands) + '/' + name, commandFile(nameSpace, commands));
  }

  void putLines(const std::string& lines) { putPlugin("a.json", Text{.start = lines}); }
};

TEST_F(VerifyCommands, GoodLinesHaveNoFindings) {
  putLines(R"(["host set --name=x", "host set -n 'a b' --fast", "host  set\t--name x --mode y"])");
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyCommands, LinesThatCannotBeParsedAreFound) {
  putLines(R"(["host set 'x", "",
  "host set --name a b", "host set --", "host set \\"])");
  EXPECT_THAT(
      told(),
      ElementsAre(
          "error command-syntax PLUGINS/a.json:6:11 host set 'x: a quote without an end",
          "error command-syntax PLUGINS/a.json:6:26 : the command line is empty",
          "error command-syntax PLUGINS/a.json:7:3 host set --name a b: 'b' follows a value and is "
          "no option",
          "error command-syntax PLUGINS/a.json:7:26 host set --: an option without a name: '--'",
          "error command-syntax PLUGINS/a.json:7:41 host set \\: a quote without an end"));
}

TEST_F(VerifyCommands, EveryFaultOfALineIsFound) {
  putLines(R"(["host set --nmae x --fast=yes --other"])");
  EXPECT_THAT(told(),
              ElementsAre("error command-parameter-missing PLUGINS/a.json:6:11 host set: missing "
                          "required parameter 'name' of command 'host set'",
                          "error command-parameter-unknown PLUGINS/a.json:6:11 host set: parameter "
                          "'fast' of command 'host set' is a flag and takes no value",
                          "error command-parameter-unknown PLUGINS/a.json:6:11 host set: unknown "
                          "parameter 'nmae' of command 'host set'",
                          "error command-parameter-unknown PLUGINS/a.json:6:11 host set: unknown "
                          "parameter 'other' of command 'host set'"));
  std::vector<std::string> help;
  for (const Finding& finding : findings()) help.push_back(finding.help);
  EXPECT_THAT(help, ElementsAre("", "", "Did you mean \"name\"?", ""));
}

TEST_F(VerifyCommands, UnknownCommandIsFoundWithTheNearestNames) {
  putLines(R"(["host ste --name x", "set", "--name x"])");
  EXPECT_THAT(told(),
              ElementsAre("error command-unknown PLUGINS/a.json:6:11 host ste: unknown command "
                          "'host ste'",
                          "error command-unknown PLUGINS/a.json:6:32 set: unknown command 'set'",
                          "error command-unknown PLUGINS/a.json:6:39 : unknown command ''"));
  EXPECT_EQ(findings().front().help, "Did you mean \"host set\"?");
}

TEST_F(VerifyCommands, LinesOfApplyHostProfileAreLookedAtToo) {
  putPlugin("a.json",
            Text{.version = "2", .operations = ",\n\"apply_host_profile\": [\"x\", \"y\"]"});
  EXPECT_THAT(told(), ElementsAre(HasSubstr("PLUGINS/a.json:7:24 x:"),
                                  HasSubstr("PLUGINS/a.json:7:29 y:")));
}

TEST_F(VerifyCommands, LineOf1023BytesIsShortEnough) {
  const std::string head = "host set --name=";
  putLines("[\"" + head + std::string(1023 - head.size(), 'x') + "\"]");
  EXPECT_THAT(told(), IsEmpty());
  putLines("[\"" + head + std::string(1024 - head.size(), 'x') + "\"]");
  EXPECT_THAT(told(),
              ElementsAre("error command-too-long PLUGINS/a.json:6:11 host set: the command "
                          "line has 1024 bytes, and would be cut at 1023"));
}

TEST_F(VerifyCommands, LineThatIsTooLongIsJudgedAsItStands) {
  putLines("[\"other " + std::string(1100, 'x') + "\", \"host set --name '" +
           std::string(1100, 'x') + "'\"]");
  EXPECT_THAT(told(), ElementsAre(HasSubstr("command-too-long PLUGINS/a.json:6:11 other xxx"),
                                  HasSubstr("command-unknown PLUGINS/a.json:6:11 other xxx"),
                                  HasSubstr("command-too-long PLUGINS/a.json:6:1121 host set:")));
}

TEST_F(VerifyCommands, LineThatBeginsWithStopIsFoundInAnyCaseAndNothingElseOfIt) {
  putLines(R"(["stop", "STOPPER go", "sTop'", " stop"])");
  EXPECT_THAT(
      told(),
      ElementsAre("error command-is-stop PLUGINS/a.json:6:11 stop: the command line begins "
                  "with \"stop\", which stops the executor",
                  "error command-is-stop PLUGINS/a.json:6:19 STOPPER go: the command line "
                  "begins with \"STOP\", which stops the executor",
                  "error command-is-stop PLUGINS/a.json:6:33 sTop': the command line begins "
                  "with \"sTop\", which stops the executor",
                  "error command-unknown PLUGINS/a.json:6:42 stop: unknown command "
                  "'stop'"));
}

TEST_F(VerifyCommands, LongStopIsBoth) {
  putLines("[\"stop" + std::string(1100, 'x') + "\"]");
  EXPECT_THAT(told(), ElementsAre(HasSubstr("command-is-stop"), HasSubstr("command-too-long")));
}

TEST_F(VerifyCommands, LineEndsAtAZeroByteAsItDoesOnItsWay) {
  putLines(R"(["host set --name x\u0000 --other", "\u0000x"])");
  EXPECT_THAT(told(), ElementsAre("error command-syntax PLUGINS/a.json:6:46 : the command line is "
                                  "empty"));
}

TEST_F(VerifyCommands, CommandsOfRejectedAndLeftOutPluginsAreNotLookedAt) {
  putPlugin("a.json", Text{.version = "8", .start = R"(["unknown"])"});
  putPlugin("b.json", Text{.start = R"(["unknown"])"});
  options_.selection.denied = {"b"};
  EXPECT_THAT(told("command-unknown"), IsEmpty());
}

TEST_F(VerifyCommands, ProgramThatIsMissingOrCannotBeRunIsFoundOnceForEachCommand) {
  put("/bin/plain", "");
  std::filesystem::create_directory(std::string(kRoot) + "/bin/folder");
  std::filesystem::create_symlink("/bin/tool", std::string(kRoot) + "/bin/link");
  putFile("more.json", {R"("a": {"exec": ["/bin/none"], "timeout": 1})",
                        R"("b": {"exec": ["/bin/none"]})", R"("c": {"exec": ["/bin/plain"]})",
                        R"("d": {"exec": ["/bin/folder"]})", R"("e": {"exec": ["/bin/link"]})"});
  putLines(R"(["host a", "host a"])");
  const std::string head = "error command-program-missing COMMANDS/more.json:";
  EXPECT_THAT(told(),
              ElementsAre(head + "2:16 host a: the program /bin/none is not in the image",
                          head + "3:16 host b: the program /bin/none is not in the image",
                          head + "4:16 host c: the program /bin/plain is no executable file",
                          head + "5:16 host d: the program /bin/folder is no executable file"));
}

TEST_F(VerifyCommands, EveryFaultOfACommandFileIsFoundWithItsPlace) {
  putFile("bad.json", {R"("a b": {"exec": []})", R"("c": {"exec": ["tool"], "timeout": 0})",
                       R"("d": {"exec": ["/bin/tool", "{x}", 3]})", R"("e": 1)", R"("f": {})"});
  const std::string head = "error command-file-invalid COMMANDS/bad.json:";
  EXPECT_THAT(
      told(),
      ElementsAre(
          head + "2:1 host: command \"a b\": this is no word of a command line",
          head + "2:17 host: command \"a b\": \"exec\": is no list of a program and its arguments",
          head + "3:16 host: command \"c\": \"exec\" word 1: is no absolute path of a program",
          head + "3:36 host: command \"c\": \"timeout\": is no number of seconds above 0",
          HasSubstr("COMMANDS/bad.json:4:29 host: command \"d\": \"exec\" word 2: "),
          head + "4:36 host: command \"d\": \"exec\" word 3: is no string",
          head + "5:6 host: command \"e\": is no object",
          head + "6:6 host: command \"f\": \"exec\" is missing"));
}

TEST_F(VerifyCommands, FileThatIsNoJsonOrCannotBeReadIsInvalid) {
  put(std::string(kCommands) + "/a.json", "{\"namespace\":\n}");
  put(std::string(kCommands) + "/b.json", commandFile("x", {}) + " 1");
  std::filesystem::create_directory(std::string(kRoot) + kCommands + "/c.json");
  put(std::string(kCommands) + "/.d.json", "ignored, as by a shell");
  put(std::string(kCommands) + "/e.conf", "ignored as well");
  EXPECT_THAT(told(), ElementsAre("error command-file-invalid COMMANDS/a.json:2:1 : line 2: syntax "
                                  "error",
                                  "error command-file-invalid COMMANDS/b.json:2:2 : line 2: extra "
                                  "data",
                                  "error command-file-invalid COMMANDS/c.json : is no regular "
                                  "file"));
}

TEST_F(VerifyCommands, FileWithOneBadCommandMakesItsOthersUnknown) {
  putFile("bad.json", {R"("good": {"exec": ["/bin/tool"], "timeout": 1})", R"("bad": {})"});
  putLines(R"(["host good"])");
  EXPECT_THAT(told(), ElementsAre("error command-file-invalid COMMANDS/bad.json:3:8 host: command "
                                  "\"bad\": \"exec\" is missing",
                                  "error command-unknown PLUGINS/a.json:6:11 host good: unknown "
                                  "command 'host good'"));
}

TEST_F(VerifyCommands, UnknownKeysOfACommandFileAreFoundInEveryObject) {
  put(std::string(kCommands) + "/more.json",
      "{\"namespace\": \"x\", \"comment\": 1, \"commands\": {\n"
      "\"a\": {\"exec\": [\"/bin/tool\"], \"tmeout\": 1, \"parameters\": {\n"
      "\"p\": {\"optional\": true}}}}}");
  EXPECT_THAT(told(), ElementsAre("warning command-file-unknown-key COMMANDS/more.json:1:20 x: "
                                  "unknown key \"comment\" is ignored",
                                  "warning command-file-unknown-key COMMANDS/more.json:2:30 x: "
                                  "command \"a\": unknown key \"tmeout\" is ignored",
                                  "warning command-file-unknown-key COMMANDS/more.json:3:7 x: "
                                  "command \"a\": parameter \"p\": unknown key \"optional\" is "
                                  "ignored"));
}

TEST_F(VerifyCommands, CommandWithoutATimeLimitIsANoteOnceWhenItIsUsed) {
  putFile("more.json",
          {R"("used": {"exec": ["/bin/tool"]})", R"("idle": {"exec": ["/bin/tool"]})"});
  putLines(R"(["host used", "host used", "host set --name x"])");
  putPlugin("b.json", Text{.start = R"(["host used"])"});
  EXPECT_THAT(told(),
              ElementsAre("note command-no-timeout COMMANDS/more.json:2:9 host used: "
                          "plugins use the command \"host used\", which has no time limit"));
}

TEST_F(VerifyCommands, LaterDirectoryShadowsAnEarlierOne) {
  putFile("ext/host.json", {R"("set": {"exec": ["/bin/tool"], "timeout": 1})"});
  putFile("int/ext/x.json", {R"("set": {"exec": ["/bin/none"]})"});
  putLines(R"(["host set"])");
  EXPECT_THAT(told(), ElementsAre("note command-shadowed COMMANDS/ext/host.json:2:8 host set: "
                                  "command \"host set\" takes the place of that of "
                                  "COMMANDS/int/ext/x.json",
                                  "note command-shadowed COMMANDS/int/ext/x.json:2:8 host set: "
                                  "command \"host set\" takes the place of that of "
                                  "COMMANDS/host.json"));
}

}  // namespace
}  // namespace bootforge::analyze::test
