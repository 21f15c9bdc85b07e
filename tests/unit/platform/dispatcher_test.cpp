#include <gtest/gtest.h>
#include <unistd.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "platform/autocli.h"
#include "platform/log.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"

namespace bootforge::test {
namespace {

using CppTools::AutoCli::CommandInput;
using CppTools::AutoCli::CommandOutput;
using Errors = std::vector<std::string>;

/// Runs a line as the program does, and gives the errors.
Errors run(CppTools::AutoCli::Dispatcher& dispatcher, const std::string& line) {
  CppTools::AutoCli::OptionParser parser;
  EXPECT_TRUE(parser.ParseString(line)) << line;
  std::shared_ptr<CommandInput> input = CommandInput::New();
  std::shared_ptr<CommandOutput> output = CommandOutput::New();
  std::list<std::string> path = parser.GetCommandPath();
  input->SetDispatcher("bootforge");
  input->SetCommandPath(path);
  for (const auto& [name, value] : parser.GetCommandParameters()) input->AddParameter(name, value);
  dispatcher.ExecuteCommand(input, output);
  EXPECT_EQ(output->HasError(), !output->GetErrors().empty());
  return output->GetErrors();
}

/// Commands that write their arguments to /tmp/arguments, one a line, or fail in some way.
class Dispatcher : public testing::Test {
 protected:
  void SetUp() override {
    writeFile("/bin/note", "#!/bin/sh\nfor a in \"$@\"; do echo \"$a\"; done >/tmp/arguments\n",
              0755);
    writeFile("/bin/complain", "#!/bin/sh\necho first >&2\necho >&2\nprintf last >&2\nexit $1\n",
              0755);
    writeFile("/bin/die", "#!/bin/sh\necho dying >&2\nkill -TERM $$\n", 0755);
    writeFile("/d/commands.json", R"({
      "namespace": "test it",
      "commands": {
        "note": {
          "parameters": {
            "name": {"short": "n", "required": true},
            "address": {"short": "a", "required": true},
            "mtu": {"short": "m"},
            "replace": {"flag": true}
          },
          "exec": ["/bin/note", "plain", "{address}", "dev={name}", "mtu={mtu}", "{name}/{mtu}",
                   "replace={replace}", "{{}}"]
        },
        "complain": {"parameters": {"code": {}}, "exec": ["/bin/complain", "{code}"]},
        "die": {"exec": ["/bin/die"]},
        "lost": {"exec": ["/bin/nowhere"]}
      }})");
    dispatcher_.AddExternalDirectory("/d");
  }

  Errors run(const std::string& line) { return test::run(dispatcher_, line); }
  static std::string arguments() { return readFile("/tmp/arguments"); }

  CppTools::AutoCli::Dispatcher dispatcher_;
};

TEST_F(Dispatcher, PutsValuesInThePlaceOfTheirNames) {
  EXPECT_EQ(run("test it note --name eth0 --address=10.0.0.1/24 --mtu 9000 --replace"), Errors{});
  EXPECT_EQ(arguments(), "plain\n10.0.0.1/24\ndev=eth0\nmtu=9000\neth0/9000\nreplace=true\n{}\n");
}

TEST_F(Dispatcher, LeavesOutArgumentsThatNameWhatWasNotGiven) {
  EXPECT_EQ(run("test it note --name eth0 --address 1"), Errors{});
  EXPECT_EQ(arguments(), "plain\n1\ndev=eth0\n{}\n");
}

TEST_F(Dispatcher, KnowsShortNames) {
  EXPECT_EQ(run("test it note -n eth0 -a=1 -m 5"), Errors{});
  EXPECT_EQ(arguments(), "plain\n1\ndev=eth0\nmtu=5\neth0/5\n{}\n");
}

TEST_F(Dispatcher, PassesValuesWithoutAnyExpansion) {
  EXPECT_EQ(run("test it note -n '$HOME *' -a '{name}'"), Errors{});
  EXPECT_EQ(arguments(), "plain\n{name}\ndev=$HOME *\n{}\n");
}

TEST_F(Dispatcher, PassesAnEmptyValueAsAnEmptyArgument) {
  EXPECT_EQ(run("test it note -n x -a ''"), Errors{});
  EXPECT_EQ(arguments(), "plain\n\ndev=x\n{}\n");
}

TEST_F(Dispatcher, TakesTheLastOfSeveralValues) {
  EXPECT_EQ(run("test it note -n first --name last -a 1"), Errors{});
  EXPECT_EQ(arguments(), "plain\n1\ndev=last\n{}\n");
}

TEST_F(Dispatcher, NamesACommandThatThereIsNot) {
  EXPECT_EQ(run("test it nope"), (Errors{"unknown command 'test it nope'"}));
  EXPECT_EQ(run("test it"), (Errors{"unknown command 'test it'"}));
  EXPECT_EQ(run("'test it' note"), (Errors{"unknown command 'test it note'"}));
  EXPECT_EQ(run("--name=x"), (Errors{"unknown command ''"}));
}

TEST_F(Dispatcher, NamesEverythingThatIsWrongWithTheParametersAndRunsNothing) {
  EXPECT_EQ(run("test it note --nmae x -q --address 1"),
            (Errors{"unknown parameter 'nmae' of command 'test it note'",
                    "unknown parameter 'q' of command 'test it note'",
                    "missing required parameter 'name' of command 'test it note'"}));
  EXPECT_EQ(run("test it note"),
            (Errors{"missing required parameter 'name' of command 'test it note'",
                    "missing required parameter 'address' of command 'test it note'"}));
  EXPECT_EQ(run("test it note -n x -a 1 --replace=no"),
            (Errors{"parameter 'replace' of command 'test it note' is a flag and takes no value"}));
  EXPECT_FALSE(exists("/tmp/arguments"));
}

TEST_F(Dispatcher, RefusesAValueThatNoProgramCouldTake) {
  EXPECT_EQ(run("test it note -a 1 -n " + std::string("a\0b", 3)),
            (Errors{"the value of parameter 'n' holds a zero byte"}));
}

TEST_F(Dispatcher, GivesTheLinesOfAFailedProgramAndItsExitCode) {
  EXPECT_EQ(run("test it complain --code=3"),
            (Errors{"first", "last", "/bin/complain exited with code 3"}));
}

TEST_F(Dispatcher, GivesTheLinesOfAKilledProgramAndItsSignal) {
  EXPECT_EQ(run("test it die"), (Errors{"dying", "/bin/die was killed by signal 15"}));
}

TEST_F(Dispatcher, SaysWhyAProgramCannotBeStarted) {
  EXPECT_EQ(run("test it lost"),
            (Errors{"/bin/nowhere cannot be started: No such file or directory"}));
}

TEST_F(Dispatcher, GivesTheLinesOfAProgramThatTookTooLongAndItsTime) {
  writeFile("/d/slow.json", R"({
    "namespace": "slow",
    "commands": {
      "half": {"exec": ["/bin/sh", "-c", "echo going >&2; sleep 1000"], "timeout": 0.5},
      "well": {"exec": ["/bin/sh", "-c", "trap 'exit 0' TERM; sleep 1000 & wait"], "timeout": 1},
      "fast": {"exec": ["/bin/sh", "-c", "exit 3"], "timeout": 1000000}
    }})");
  dispatcher_.AddExternalDirectory("/d");
  EXPECT_EQ(run("slow half"), (Errors{"going", "/bin/sh timed out after 0.5 s"}));
  EXPECT_EQ(run("slow well"), (Errors{"/bin/sh timed out after 1 s"}));
  EXPECT_EQ(run("slow fast"), (Errors{"/bin/sh exited with code 3"}));
}

TEST_F(Dispatcher, PassesOnWhatAProgramThatEndedWellWroteToStandardError) {
  Finished child = runInChild([this] { EXPECT_EQ(run("test it complain --code=0"), Errors{}); });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(child.err, "first\n\nlast");
}

TEST_F(Dispatcher, TellsHowMuchOfAFloodWasNotPassedOn) {
  writeFile("/bin/complain", "#!/bin/sh\nyes | head -c 100000 >&2\n", 0755);
  Finished child = runInChild([this] { EXPECT_EQ(run("test it complain"), Errors{}); });
  std::string end = "\n/bin/complain wrote 34464 bytes more\n";
  EXPECT_TRUE(child.err.ends_with(end)) << child.err.substr(65000);
  EXPECT_EQ(child.err.size(), 65536 + end.size());
}

TEST_F(Dispatcher, GivesFiveThousandLinesOf64KibAndTellsHowMuchMoreThereWas) {
  // What a program writes, how many errors it makes, and what is told of the rest.
  struct Flood {
    const char* words;
    std::size_t errors;
    std::string told;
  };
  for (const Flood& flood : {
           Flood{"yes | head -c 100000", 5001, "/bin/complain wrote 90000 bytes more"},
           Flood{"yes | head -n 5001", 5001, "/bin/complain wrote 2 bytes more"},
           Flood{"yes | head -n 5000", 5001, ""},
           Flood{"yes 'a line of many' | head -n 4400", 4371, "/bin/complain wrote 464 bytes more"},
           Flood{"head -c 70000 /dev/zero | tr '\\0' x", 2, "/bin/complain wrote 4464 bytes more"},
       }) {
    writeFile("/bin/complain", std::string("#!/bin/sh\n(") + flood.words + ") >&2\nexit 3\n", 0755);
    Finished child = runInChild([&] {
      Log_SetStderrLevel(0, 3);
      Errors errors = run("test it complain");
      EXPECT_EQ(errors.size(), flood.errors) << flood.words;
      EXPECT_EQ(errors.back(), "/bin/complain exited with code 3");
    });
    EXPECT_EQ(child.status, 0) << child.out;
    EXPECT_EQ(child.err, flood.told.empty() ? "" : "platform_tests: warning: " + flood.told + "\n");
  }
}

TEST_F(Dispatcher, GivesControlCharactersOfAProgramAsText) {
  writeFile("/bin/complain", "#!/bin/sh\nprintf '\\033[2J\\ta\\000b\\r\\n' >&2\nexit ${1#code=}\n",
            0755);
  EXPECT_EQ(run("test it complain --code=3"),
            (Errors{"\\x1b[2J\ta\\x00b\\x0d", "/bin/complain exited with code 3"}));
  Finished child = runInChild([this] { EXPECT_EQ(run("test it complain --code=0"), Errors{}); });
  EXPECT_EQ(child.err, "\\x1b[2J\ta\\x00b\\x0d\n");
}

TEST_F(Dispatcher, LeavesNoDescriptorOpenWhateverHappens) {
  int before = countOpenDescriptors();
  for (const char* line : {"test it nope", "test it note -n x -a 1", "test it complain --code=3",
                           "test it die", "test it lost", "test it note --q"}) {
    run(line);
    EXPECT_EQ(countOpenDescriptors(), before) << line;
  }
}

TEST_F(Dispatcher, ThrowsForADirectoryThatCannotBeRead) {
  try {
    dispatcher_.AddExternalDirectory("/nowhere");
    ADD_FAILURE();
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "/nowhere: No such file or directory");
  }
  EXPECT_EQ(run("test it note -n x -a 1"), Errors{}) << "what was there before is still there";
}

TEST_F(Dispatcher, NeedsNoFileAgainOnceItWasRead) {
  ASSERT_EQ(unlink("/d/commands.json"), 0);
  EXPECT_EQ(run("test it note -n x -a 1"), Errors{});
}

}  // namespace
}  // namespace bootforge::test
