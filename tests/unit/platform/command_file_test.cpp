#include "platform/linux/command_file.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "reading/place.h"

namespace bootforge::test {
namespace {

using host_linux::Command;
using host_linux::CommandFile;
using host_linux::Parameter;
using host_linux::parseCommandFile;
using Words = std::vector<std::string>;

/// Why a text is no command file; empty for one that is.
std::string reasonAgainst(const std::string& text) {
  try {
    parseCommandFile(text);
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

Words textsOf(const std::vector<CommandFile::Finding>& findings) {
  Words texts;
  for (const CommandFile::Finding& finding : findings) texts.push_back(finding.text);
  return texts;
}

/// The reason against a file with one command of this description.
std::string reasonAgainstCommand(const std::string& description) {
  return reasonAgainst(R"({"namespace": "n", "commands": {"c": )" + description + "}}");
}

/// ... with one parameter "p" of this description.
std::string reasonAgainstParameter(const std::string& description) {
  return reasonAgainstCommand(R"({"exec": ["/bin/true"], "parameters": {"p": )" + description +
                              "}}");
}

/// ... with these words to run and the parameter "p".
std::string reasonAgainstExec(const std::string& words) {
  return reasonAgainstCommand(R"({"parameters": {"p": {}}, "exec": )" + words + "}");
}

TEST(CommandFile, DescribesANamespaceWithItsCommands) {
  CommandFile file = parseCommandFile(R"({
    // Comments of both kinds are allowed.
    "namespace": "network ip",
    "commands": {  /* here, too */
      "set": {
        "summary": "Give an interface an address",
        "parameters": {
          "interface": { "short": "i", "required": true, "summary": "interface name" },
          "mtu":       { "short": "m" },
          "replace":   { "flag": true }
        },
        "exec": ["/usr/sbin/ip", "addr", "dev={interface}"]
      },
      "list": { "exec": ["/usr/sbin/ip"] }
    }
  })");
  EXPECT_EQ(file.nameSpace, (Words{"network", "ip"}));
  ASSERT_EQ(file.commands.size(), 2U);
  EXPECT_EQ(file.commands[0].word, "set");
  EXPECT_EQ(file.commands[1].word, "list");
  const Command& set = file.commands[0].command;
  EXPECT_EQ(set.summary, "Give an interface an address");
  EXPECT_EQ(set.program, "/usr/sbin/ip");
  EXPECT_EQ(set.arguments.size(), 2U);
  ASSERT_EQ(set.parameters.size(), 3U);
  EXPECT_EQ(set.parameters[0].name, "interface");
  EXPECT_EQ(set.parameters[0].shortName, "i");
  EXPECT_EQ(set.parameters[0].summary, "interface name");
  EXPECT_TRUE(set.parameters[0].required);
  EXPECT_FALSE(set.parameters[0].flag);
  EXPECT_TRUE(set.parameters[2].flag);
  EXPECT_FALSE(set.parameters[2].required);
}

TEST(CommandFile, MayHaveNoCommands) {
  EXPECT_EQ(reasonAgainst(R"({"namespace": "n", "commands": {}})"), "");
}

TEST(CommandFile, MayHoldBytesThatAreNoUtf8) {
  CommandFile file = parseCommandFile(
      "{\"namespace\": \"n\", \"commands\": {\"c\": {\"summary\": \"\xff\", \"exec\": [\"/x\"]}}}");
  EXPECT_EQ(file.commands[0].command.summary, "\xff");
}

TEST(CommandFile, SplitsItsNamespaceAtAnyNumberOfBlanks) {
  EXPECT_EQ(parseCommandFile(R"({"namespace": "  a   b ", "commands": {}})").nameSpace,
            (Words{"a", "b"}));
}

TEST(CommandFile, IsBadWithTheLineOfTheMistakeWhenItIsNoJson) {
  EXPECT_EQ(reasonAgainst("{\n  \"namespace\": \"n\",\n  oops\n}"), "line 3: syntax error");
  EXPECT_EQ(reasonAgainst(""), "line 1: incomplete JSON");
  EXPECT_EQ(reasonAgainst("{\"namespace\": \"n\",\n"), "line 2: incomplete JSON");
  EXPECT_EQ(reasonAgainst("{\"namespace\": \"n\", \"commands\": {}}\n\n x"), "line 3: extra data");
  EXPECT_EQ(reasonAgainst("{\"namespace\": \"n\", \"commands\": {}} // the end\n"), "");
}

TEST(CommandFile, MayHoldCommentsOfAnyShape) {
  for (const std::string comment :
       {"/**/", "/***/", "/****/", "/*****/", "/* **/", "/** text **/", "/* ** */", "/*/*/",
        "/*\n * \"quoted\n */", "//\n", "///\n", "// \"\n", "//*/\n"}) {
    std::string text;
    for (const char* part :
         {"{", "\"namespace\"", ":", "\"/*n*/\"", ",", "\"commands\"", ":", "{}", "}"}) {
      text += comment + part;
    }
    EXPECT_EQ(reasonAgainst(text + comment), "") << text;
  }
}

TEST(CommandFile, IsBadWithTheLineOfTheMistakeAlsoBehindCommentsOfSeveralLines) {
  EXPECT_EQ(reasonAgainst("/*\n\n*/{ // x\n oops}"), "line 4: syntax error");
}

TEST(CommandFile, IsBadWhenACommentInThePlaceOfAValueIsNone) {
  EXPECT_EQ(reasonAgainst(R"({"namespace": /x)"), "line 1: syntax error");
  EXPECT_EQ(reasonAgainst(R"({"namespace": /* x)"), "line 1: incomplete JSON");
  EXPECT_EQ(reasonAgainst(R"({"commands": [ /usr/bin/x ]})"), "line 1: syntax error");
}

TEST(CommandFile, IsBadAndNothingWorseWhenItIsNestedDeeply) {
  EXPECT_EQ(reasonAgainst(std::string(1'000'000, '[')), "line 1: too deep");
  std::string deep = std::string(4000, '[') + std::string(4000, ']');
  EXPECT_EQ(reasonAgainst(deep), "the file: is no object");
}

TEST(CommandFile, IsBadWithoutItsTwoKeys) {
  EXPECT_EQ(reasonAgainst("[]"), "the file: is no object");
  EXPECT_EQ(reasonAgainst("{}"), "\"namespace\" is missing");
  EXPECT_EQ(reasonAgainst(R"({"namespace": "n"})"), "\"commands\" is missing");
  EXPECT_EQ(reasonAgainst(R"({"namespace": 1, "commands": {}})"), "\"namespace\": is no string");
  EXPECT_EQ(reasonAgainst(R"({"namespace": "n", "commands": []})"), "\"commands\": is no object");
}

TEST(CommandFile, RemarksOnEachKeyThatMeansNothingAndIsNoneTheWorseForIt) {
  CommandFile file = parseCommandFile(R"({
    "version": 2,
    "namespace": "n",
    "commands": {"c": {
      "parameters": {"p": {"requird": true, "short": "q"}},
      "exec": ["/x", "{p}"],
      "sumary": []
    }}
  })");
  EXPECT_EQ(textsOf(file.remarks),
            (Words{"unknown key \"version\"", "command \"c\": unknown key \"sumary\"",
                   "command \"c\": parameter \"p\": unknown key \"requird\""}));
  ASSERT_EQ(file.commands.size(), 1U);
  const Command& command = file.commands[0].command;
  EXPECT_EQ(command.arguments.size(), 1U);
  EXPECT_EQ(command.parameters.at(0).shortName, "q");
  EXPECT_FALSE(command.parameters.at(0).required);
}

TEST(CommandFile, IsWithoutRemarksWhenItHasTheKnownKeysOnly) {
  EXPECT_EQ(textsOf(parseCommandFile(
                        R"({"namespace": "n", "commands": {"c": {"summary": "", "exec": ["/x"],
                            "timeout": 1.5, "parameters": {"p": {"short": "q", "required": true,
                                                                 "flag": true, "summary": ""}}}}})")
                        .remarks),
            Words());
}

TEST(CommandFile, IsBadWithANamespaceThatNoCommandLineCanName) {
  EXPECT_EQ(reasonAgainst(R"({"namespace": " ", "commands": {}})"), "\"namespace\": is empty");
  EXPECT_EQ(reasonAgainst(R"({"namespace": "a -b", "commands": {}})"),
            "\"namespace\": \"-b\" is no word of a command line");
  EXPECT_EQ(reasonAgainst(R"({"namespace": "a\u0000b", "commands": {}})"),
            "\"namespace\": holds a zero byte");
}

TEST(CommandFile, IsBadWithACommandThatNoCommandLineCanName) {
  for (const char* name : {"", "a b", "-a", "a\\t"}) {
    std::string reason = reasonAgainst(R"({"namespace": "n", "commands": {")" + std::string(name) +
                                       R"(": {"exec": ["/x"]}}})");
    EXPECT_TRUE(reason.ends_with(": this is no word of a command line")) << reason;
  }
}

TEST(CommandFile, IsBadWithACommandOfTheWrongShape) {
  EXPECT_EQ(reasonAgainstCommand("1"), "command \"c\": is no object");
  EXPECT_EQ(reasonAgainstCommand(R"({"exec": ["/x"], "summary": 1})"),
            "command \"c\": \"summary\": is no string");
  EXPECT_EQ(reasonAgainstCommand(R"({"exec": ["/x"], "parameters": []})"),
            "command \"c\": \"parameters\": is no object");
}

TEST(CommandFile, IsBadWithAParameterOfTheWrongShape) {
  const std::string where = "command \"c\": parameter \"p\": ";
  EXPECT_EQ(reasonAgainstParameter("1"), where + "is no object");
  EXPECT_EQ(reasonAgainstParameter(R"({"required": 1})"),
            where + "\"required\": is neither true nor false");
  EXPECT_EQ(reasonAgainstParameter(R"({"flag": "true"})"),
            where + "\"flag\": is neither true nor false");
  EXPECT_EQ(reasonAgainstParameter(R"({"summary": []})"), where + "\"summary\": is no string");
  EXPECT_EQ(reasonAgainstParameter(R"({"short": 1})"), where + "\"short\": is no string");
  for (const char* shortName : {"", "ab", "-", "=", " "}) {
    EXPECT_EQ(reasonAgainstParameter(R"({"short": ")" + std::string(shortName) + "\"}"),
              where + "\"short\": is not one letter")
        << shortName;
  }
}

TEST(CommandFile, IsBadWithAParameterThatNoCommandLineCanName) {
  for (const char* name : {"", "-p", "a b", "a=b", "a{", "a}"}) {
    std::string reason = reasonAgainstCommand(R"({"exec": ["/x"], "parameters": {")" +
                                              std::string(name) + R"(": {}}})");
    EXPECT_TRUE(reason.ends_with(": this is no name for a parameter")) << reason;
  }
}

TEST(CommandFile, IsBadWhenTwoParametersShareAName) {
  EXPECT_EQ(reasonAgainstCommand(
                R"({"exec": ["/x"], "parameters": {"a": {"short": "x"}, "b": {"short": "x"}}})"),
            "command \"c\": parameters \"a\" and \"b\" share the name \"x\"");
  EXPECT_EQ(
      reasonAgainstCommand(R"({"exec": ["/x"], "parameters": {"a": {"short": "b"}, "b": {}}})"),
      "command \"c\": parameters \"a\" and \"b\" share the name \"b\"");
  EXPECT_EQ(reasonAgainstCommand(R"({"exec": ["/x"], "parameters": {"a": {"short": "a"}}})"), "");
}

TEST(CommandFile, IsBadWithoutAProgramToRun) {
  const std::string noList = "command \"c\": \"exec\": is no list of a program and its arguments";
  EXPECT_EQ(reasonAgainstCommand("{}"), "command \"c\": \"exec\" is missing");
  EXPECT_EQ(reasonAgainstExec("[]"), noList);
  EXPECT_EQ(reasonAgainstExec("\"/bin/true\""), noList);
  EXPECT_EQ(reasonAgainstExec(R"(["/bin/true", 1])"),
            "command \"c\": \"exec\" word 2: is no string");
  for (const char* program : {"true", "", "./true", "{p}", "/bin/{p}"}) {
    EXPECT_EQ(reasonAgainstExec("[\"" + std::string(program) + "\"]"),
              "command \"c\": \"exec\" word 1: is no absolute path of a program");
  }
}

TEST(CommandFile, MayLimitTheTimeOfACommand) {
  const auto timeoutOf = [](const std::string& value) {
    return parseCommandFile(R"({"namespace": "n", "commands": {"c": {"exec": ["/x"])" + value +
                            "}}}")
        .commands[0]
        .command.timeout;
  };
  EXPECT_EQ(timeoutOf(""), std::nullopt);
  EXPECT_EQ(timeoutOf(R"(, "timeout": 30)"), 30.0);
  EXPECT_EQ(timeoutOf(R"(, "timeout": 0.25)"), 0.25);
}

TEST(CommandFile, IsBadWithALimitThatIsNone) {
  for (const char* value : {"0", "-1", "\"10\"", "null", "true", "[10]"}) {
    EXPECT_EQ(reasonAgainstCommand(R"({"exec": ["/x"], "timeout": )" + std::string(value) + "}"),
              "command \"c\": \"timeout\": is no number of seconds above 0")
        << value;
  }
}

TEST(CommandFile, TellsEveryFaultWithItsPlace) {
  const bootforge::JsonText json(R"({
    "namespace": "a -b",
    "commands": {
      "c d": {"exec": "x", "summary": 1, "parameters": {"p": {"short": "q"}, "q": {"flag": 1}}},
      "e": {"exec": ["true", "{r}"], "timeout": 0},
      "f": 2
    }
  })");
  Words found;
  for (const CommandFile::Finding& fault : host_linux::readCommandFile(json).faults) {
    const bootforge::Place place = bootforge::placeOf(json.text(), fault.at);
    found.push_back(std::to_string(place.line) + ":" + std::to_string(place.column) + " " +
                    fault.text);
  }
  EXPECT_EQ(found,
            (Words{"2:18 \"namespace\": \"-b\" is no word of a command line",
                   "4:7 command \"c d\": this is no word of a command line",
                   "4:39 command \"c d\": \"summary\": is no string",
                   "4:92 command \"c d\": parameter \"q\": \"flag\": is neither true nor false",
                   "4:83 command \"c d\": parameters \"p\" and \"q\" share the name \"q\"",
                   "4:23 command \"c d\": \"exec\": is no list of a program and its arguments",
                   "5:22 command \"e\": \"exec\" word 1: is no absolute path of a program",
                   "5:30 command \"e\": \"exec\" word 2: '{r}' names no parameter of the command",
                   "5:49 command \"e\": \"timeout\": is no number of seconds above 0",
                   "6:12 command \"f\": is no object"}));
}

TEST(CommandFile, IsBadWithBracesThatNameNothing) {
  const std::string where = "command \"c\": \"exec\" word 2: ";
  EXPECT_EQ(reasonAgainstExec(R"(["/x", "a{p"])"), where + "a '{' without its '}'");
  EXPECT_EQ(reasonAgainstExec(R"(["/x", "a}p"])"), where + "a '}' without its '{'");
  EXPECT_EQ(reasonAgainstExec(R"(["/x", "{{p}"])"), where + "a '}' without its '{'");
  EXPECT_EQ(reasonAgainstExec(R"(["/x", "{q}"])"),
            where + "'{q}' names no parameter of the command");
  EXPECT_EQ(reasonAgainstExec(R"(["/x", "{}"])"), where + "'{}' names no parameter of the command");
  EXPECT_EQ(reasonAgainstExec(R"(["/x", "a\u0000"])"), where + "holds a zero byte");
}

TEST(CommandFile, KeepsBracesThatAreDoubled) {
  CommandFile file = parseCommandFile(
      R"({"namespace": "n", "commands": {"c": {"parameters": {"p": {}},
          "exec": ["/{{x}}", "{{}}", "{{{p}}}"]}}})");
  const Command& command = file.commands[0].command;
  EXPECT_EQ(command.program, "/{x}");
  ASSERT_EQ(command.arguments[0].size(), 1U);
  EXPECT_EQ(command.arguments[0][0].text, "{}");
  ASSERT_EQ(command.arguments[1].size(), 3U);
  EXPECT_EQ(command.arguments[1][0].text, "{");
  EXPECT_EQ(command.arguments[1][1].parameter, 0U);
  EXPECT_EQ(command.arguments[1][2].text, "}");
}

}  // namespace
}  // namespace bootforge::test
