#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "util/version.h"

/// The main function of hypcli.
int hypcliMain(int argc, char** argv);

namespace bootforge::test {
namespace {

struct Answer {
  int code = -1;
  std::string out;
  std::string err;
};

Answer hypcli(std::vector<std::string> words) {
  Finished child = runInChild([&words] {
    words.insert(words.begin(), "hypcli");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    _exit(hypcliMain(static_cast<int>(words.size()), arguments.data()));
  });
  EXPECT_TRUE(WIFEXITED(child.status));
  return {WEXITSTATUS(child.status), child.out, child.err};
}

class Hypcli : public testing::Test {
 protected:
  void SetUp() override {
    writeFile("/usr/lib/nimbus/hypcli/network.json", R"({
      "namespace": "network ip",
      "commands": {
        "set": {
          "summary": "Give an interface an address",
          "parameters": {
            "interface": {"short": "i", "required": true, "summary": "interface name"},
            "address": {"short": "a", "required": true},
            "mtu": {"summary": "largest packet"},
            "replace": {"short": "r", "flag": true}
          },
          "exec": ["/bin/echo", "{address}", "on", "{interface}", "{mtu}"]
        },
        "ls": {"exec": ["/bin/echo", "none"]}
      }})");
    writeFile("/usr/lib/nimbus/hypcli/int/ext/system.json", R"({
      "namespace": "network",
      "commands": {
        "fail": {"summary": "Fail", "exec": ["/bin/sh", "-c", "echo why >&2; exit 3"]},
        "warn": {"exec": ["/bin/sh", "-c", "echo careful >&2; echo done"]},
        "help": {"parameters": {"help": {"flag": true}}, "exec": ["/bin/echo", "own={help}"]}
      }})");
  }
};

TEST_F(Hypcli, RunsACommandAndShowsItsOutput) {
  Answer answer = hypcli({"network", "ip", "set", "-i", "eth0", "--address=10.0.0.1/24"});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out, "10.0.0.1/24 on eth0\n");
  EXPECT_EQ(answer.err, "");
}

TEST_F(Hypcli, KeepsTheBoundariesOfItsArguments) {
  Answer answer = hypcli({"network", "ip", "set", "-i", "a  'b\\", "-a", ""});
  EXPECT_EQ(answer.out, " on a  'b\\\n");
  answer = hypcli({"network ip", "ls"});
  EXPECT_EQ(answer.code, 2);
}

TEST_F(Hypcli, ShowsNoControlCharactersToATerminal) {
  writeFile("/usr/lib/nimbus/hypcli/odd.json", R"({
    "namespace": "odd",
    "commands": {
      "cry": {"summary": "Cry\u001b[31m",
              "exec": ["/bin/sh", "-c", "printf '\\033[2J\\n' >&2; exit 1"]}
    }})");
  Answer answer = hypcli({"odd", "cry"});
  EXPECT_EQ(answer.code, 1);
  EXPECT_EQ(answer.err, "\\x1b[2J\n/bin/sh exited with code 1\n");
  EXPECT_EQ(hypcli({"odd"}).out, "Commands of odd:\n  cry  Cry\\x1b[31m\n");
  EXPECT_EQ(hypcli({"odd", "\x1b[m"}).err,
            "hypcli: unknown command 'odd \\x1b[m'\n"
            "Try 'hypcli odd --help' for more information.\n");
}

TEST_F(Hypcli, LetsNobodyElseWriteWhatAProgramMakes) {
  writeFile("/usr/lib/nimbus/hypcli/make.json", R"({
    "namespace": "make",
    "commands": {"file": {"exec": ["/bin/sh", "-c", "umask >/tmp/umask"]}}})");
  for (auto [inherited, expected] : {std::pair(0000, "0022\n"), std::pair(0077, "0077\n")}) {
    mode_t before = umask(static_cast<mode_t>(inherited));
    EXPECT_EQ(hypcli({"make", "file"}).code, 0);
    umask(before);
    EXPECT_EQ(readFile("/tmp/umask"), expected);
  }
}

TEST_F(Hypcli, PassesOnTheErrorsOfACommandThatSucceeds) {
  Answer answer = hypcli({"network", "warn"});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out, "done\n");
  EXPECT_EQ(answer.err, "careful\n");
}

TEST_F(Hypcli, ExitsWithOneWhenTheCommandFails) {
  Answer answer = hypcli({"network", "fail"});
  EXPECT_EQ(answer.code, 1);
  EXPECT_EQ(answer.out, "");
  EXPECT_EQ(answer.err, "why\n/bin/sh exited with code 3\n");
}

TEST_F(Hypcli, ExitsWithTwoWhenThereIsNoSuchCommand) {
  Answer answer = hypcli({"network", "nope"});
  EXPECT_EQ(answer.code, 2);
  EXPECT_EQ(answer.out, "");
  EXPECT_EQ(answer.err,
            "hypcli: unknown command 'network nope'\n"
            "Try 'hypcli network --help' for more information.\n");
  EXPECT_EQ(hypcli({"network", "nope", "--help"}).code, 2);
  EXPECT_EQ(hypcli({"network", "ip", "--mtu=1"}).code, 2);
}

TEST_F(Hypcli, ShowsAnOptionThatFollowsNoCommand) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--mtu=1"}, {"-x", "network"}, {"--list", "network"}}) {
    const Answer answer = hypcli(words);
    EXPECT_EQ(answer.code, 2);
    EXPECT_EQ(answer.out, "");
    EXPECT_EQ(answer.err, "hypcli: no command before '" + words.front() +
                              "'\nTry 'hypcli --help' for more information.\n");
  }
}

TEST_F(Hypcli, NamesTheCommandsThatAreNearAMisspeltOne) {
  const auto advice = [](std::vector<std::string> words) {
    const Answer answer = hypcli(std::move(words));
    EXPECT_EQ(answer.code, 2);
    return answer.err;
  };
  EXPECT_EQ(advice({"network", "ip", "ste", "-i", "x"}),
            "hypcli: unknown command 'network ip ste'\n"
            "Did you mean 'network ip set'?\n"
            "Try 'hypcli network ip --help' for more information.\n");
  EXPECT_EQ(advice({"Netwrok", "i", "set"}),
            "hypcli: unknown command 'Netwrok i set'\n"
            "Did you mean 'network ip set'?\n"
            "Try 'hypcli --help' for more information.\n");
  EXPECT_EQ(advice({"netwrok"}),
            "hypcli: unknown command 'netwrok'\n"
            "Did you mean 'network'?\n"
            "Try 'hypcli --help' for more information.\n");
  EXPECT_EQ(advice({"network", "ip", "set", "eth0"}),
            "hypcli: unknown command 'network ip set eth0'\n"
            "Try 'hypcli network ip set --help' for more information.\n");
  EXPECT_EQ(advice({"network", "ip", "--mtu=1"}),
            "hypcli: unknown command 'network ip'\n"
            "Try 'hypcli network ip --help' for more information.\n");
}

TEST_F(Hypcli, NamesTheParametersThatAreNearAMisspeltOne) {
  Answer answer = hypcli({"network", "ip", "set", "--interfce=x", "-a", "y", "-x"});
  EXPECT_EQ(answer.code, 2);
  EXPECT_EQ(answer.err,
            "hypcli: unknown parameter 'interfce' of command 'network ip set'\n"
            "hypcli: unknown parameter 'x' of command 'network ip set'\n"
            "hypcli: missing required parameter 'interface' of command 'network ip set'\n"
            "Did you mean '--interface'?\n"
            "Try 'hypcli network ip set --help' for more information.\n");
}

TEST_F(Hypcli, TellsOfAParameterThatWasLeftWithoutItsValue) {
  Answer answer = hypcli({"network", "ip", "set", "-i", "--address=a", "--replace"});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out, "a on true\n");
  EXPECT_EQ(answer.err,
            "hypcli: parameter 'i' of command 'network ip set' has no value and is taken as "
            "'true'\n");
  answer = hypcli({"network", "ip", "set", "-i=true", "--address", "true", "--replace"});
  EXPECT_EQ(answer.err, "");
}

TEST_F(Hypcli, ExitsWithTwoWhenTheCommandDoesNotTakeTheseOptions) {
  Answer answer = hypcli({"network", "ip", "set", "--nope", "-i", "x"});
  EXPECT_EQ(answer.code, 2);
  EXPECT_EQ(answer.err,
            "hypcli: unknown parameter 'nope' of command 'network ip set'\n"
            "hypcli: missing required parameter 'address' of command 'network ip set'\n"
            "Try 'hypcli network ip set --help' for more information.\n");
  answer = hypcli({"network", "ip", "ls", "--x=1", "word"});
  EXPECT_EQ(answer.code, 2);
  EXPECT_EQ(answer.err,
            "hypcli: 'word' follows a value and is no option\n"
            "Try 'hypcli network ip ls --help' for more information.\n");
}

TEST_F(Hypcli, ExitsWithTwoForAnOptionWithoutANameWhereverItStands) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"-"}, {"--"}, {"network", "--=1"}, {"network", "ip", "-"}}) {
    Answer answer = hypcli(words);
    EXPECT_EQ(answer.code, 2);
    EXPECT_EQ(answer.out, "");
    EXPECT_TRUE(answer.err.starts_with("hypcli: an option without a name: '")) << answer.err;
  }
}

TEST_F(Hypcli, ListsTheNamespaces) {
  Answer answer = hypcli({});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out, "Namespaces:\n  network\n  network ip\n");
}

TEST_F(Hypcli, ListsTheCommandsOfANamespaceWithTheirSummaries) {
  const std::string expected =
      "Commands of network ip:\n"
      "  ls\n"
      "  set  Give an interface an address\n";
  EXPECT_EQ(hypcli({"network", "ip"}).out, expected);
  EXPECT_EQ(hypcli({"network", "ip", "--help"}).out, expected);
  EXPECT_EQ(hypcli({"network", "ip", "-h"}).out, expected);
  Answer answer = hypcli({"network"});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out,
            "Commands of network:\n"
            "  fail  Fail\n"
            "  help\n"
            "  warn\n"
            "\n"
            "Namespaces:\n"
            "  network ip\n");
}

TEST_F(Hypcli, TellsTheParametersOfACommand) {
  Answer answer = hypcli({"network", "ip", "set", "--help"});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out,
            "Usage: hypcli network ip set --interface=VALUE --address=VALUE [--mtu=VALUE] "
            "[--replace]\n"
            "\n"
            "Give an interface an address\n"
            "\n"
            "Parameters:\n"
            "  -i, --interface=VALUE  interface name (required)\n"
            "  -a, --address=VALUE    (required)\n"
            "      --mtu=VALUE        largest packet\n"
            "  -r, --replace\n");
  EXPECT_EQ(hypcli({"network", "ip", "set", "-i", "x", "--help"}).out, answer.out);
  EXPECT_EQ(hypcli({"network", "ip", "ls", "--help"}).out, "Usage: hypcli network ip ls\n");
}

TEST_F(Hypcli, LeavesTheHelpOptionToACommandThatTakesIt) {
  EXPECT_EQ(hypcli({"network", "help", "--help"}).out, "own=true\n");
  EXPECT_EQ(hypcli({"network", "help", "-h"}).out,
            "Usage: hypcli network help [--help]\n\n"
            "Parameters:\n      --help\n");
  writeFile("/usr/lib/nimbus/hypcli/house.json", R"({
    "namespace": "house",
    "commands": {"heat": {"parameters": {"home": {"short": "h", "flag": true}},
                          "exec": ["/bin/echo", "{home}"]}}})");
  EXPECT_EQ(hypcli({"house", "heat", "-h"}).out, "true\n");
}

TEST_F(Hypcli, TellsItsUsageAndItsVersion) {
  for (const char* option : {"--help", "-h"}) {
    Answer answer = hypcli({option});
    EXPECT_EQ(answer.code, 0);
    EXPECT_TRUE(answer.out.starts_with("Usage: hypcli ")) << answer.out;
  }
  for (const char* option : {"--version", "-v"}) {
    EXPECT_EQ(hypcli({option}).out, std::string("hypcli ") + version() + "\n");
  }
}

TEST_F(Hypcli, RefusesAnOptionOfItsOwnThatItDoesNotHave) {
  Answer answer = hypcli({"--nope"});
  EXPECT_EQ(answer.code, 2);
  EXPECT_TRUE(answer.err.starts_with("hypcli: ")) << answer.err;
}

TEST_F(Hypcli, TellsOfBadCommandFilesOnStandardErrorAndGoesOn) {
  writeFile("/usr/lib/nimbus/hypcli/bad.json", "oops");
  Answer answer = hypcli({"network", "ip", "ls"});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out, "none\n");
  EXPECT_EQ(answer.err,
            "platform_tests: warning: command file /usr/lib/nimbus/hypcli/bad.json is skipped: "
            "line 1: syntax error\n");
}

TEST_F(Hypcli, TellsOfDirectoriesThatCannotBeReadButNotOfMissingOnes) {
  writeFile("/usr/lib/nimbus/hypcli/ext", "no directory");
  Answer answer = hypcli({"network", "ip", "ls"});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.err, "platform_tests: warning: /usr/lib/nimbus/hypcli/ext: Not a directory\n");
}

TEST_F(Hypcli, TakesTheDefinitionOfTheDirectoryThatIsRegisteredLast) {
  for (const char* directory : {"/ext", "/int/ext", "/int", ""}) {
    writeFile("/usr/lib/nimbus/hypcli" + std::string(directory) + "/z.json",
              R"({"namespace": "z", "commands": {"where": {"exec": ["/bin/echo", "in)" +
                  std::string(directory) + "\"]}}}");
  }
  EXPECT_EQ(hypcli({"z", "where"}).out, "in/ext\n");
  ASSERT_EQ(unlink("/usr/lib/nimbus/hypcli/ext/z.json"), 0);
  EXPECT_EQ(hypcli({"z", "where"}).out, "in/int/ext\n");
}

TEST(HypcliWithoutCommands, SaysThatThereAreNone) {
  Answer answer = hypcli({});
  EXPECT_EQ(answer.code, 0);
  EXPECT_EQ(answer.out,
            "No commands. These folders were searched for command files (*.json):\n"
            "  /usr/lib/nimbus/hypcli  (missing)\n"
            "  /usr/lib/nimbus/hypcli/int  (missing)\n"
            "  /usr/lib/nimbus/hypcli/int/ext  (missing)\n"
            "  /usr/lib/nimbus/hypcli/ext  (missing)\n");
  EXPECT_EQ(answer.err, "");
  writeFile("/usr/lib/nimbus/hypcli/ext/notes.txt", "");
  answer = hypcli({});
  EXPECT_TRUE(answer.out.ends_with("/hypcli/int/ext  (missing)\n  /usr/lib/nimbus/hypcli/ext\n"))
      << answer.out;
}

TEST(HypcliWithoutStandardStreams, WorksAndGivesThemToNobody) {
  writeFile("/usr/lib/nimbus/hypcli/a.json",
            R"({"namespace": "n", "commands": {"c": {"exec": ["/bin/sh", "-c",
                "echo out; echo error >&2; echo done >/tmp/done"]}}})");
  Finished child = runInChild([] {
    for (int fd : {0, 1, 2}) close(fd);
    char program[] = "hypcli";
    char nameSpace[] = "n";
    char command[] = "c";
    char* arguments[] = {program, nameSpace, command, nullptr};
    _exit(hypcliMain(3, arguments));
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(readFile("/tmp/done"), "done\n");
}

TEST(HypcliWithAFullDisk, FailsRatherThanLoseItsAnswer) {
  Finished child = runInChild([] {
    ASSERT_NE(freopen("/dev/full", "w", stdout), nullptr);
    char program[] = "hypcli";
    char option[] = "--help";
    char* arguments[] = {program, option, nullptr};
    _exit(hypcliMain(2, arguments));
  });
  EXPECT_EQ(WEXITSTATUS(child.status), 1);
  EXPECT_EQ(child.err, "hypcli: standard output: No space left on device\n");
}

}  // namespace
}  // namespace bootforge::test
