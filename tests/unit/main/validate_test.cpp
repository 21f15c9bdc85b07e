// Options that do not go together.
#include "tests/unit/main/command_line_fixture.h"
#include "tests/unit/main/program.h"

namespace bootforge {
namespace {

using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class Combination : public CommandLineTest {
 protected:
  /// Parses and validates.
  bool isValid(const std::vector<std::string>& words) {
    doubles::reset();
    parse(words);
    testing::internal::CaptureStdout();
    const bool valid = validate(line);
    printed_ = testing::internal::GetCapturedStdout();
    return valid;
  }

  std::string printed_;
};

const doubles::Record kInvalid = logLine(2, "Invalid combination of options passed. Exiting\n");
const doubles::Record kInvokeLacks = logLine(2, "invoke requires a method and plugin specified\n");

TEST_F(Combination, DaemonsAreStartedOrStopped) {
  EXPECT_TRUE(isValid({"--daemon", "--method=start"}));
  EXPECT_FALSE(line.stop);
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_TRUE(isValid({"--method=stop", "--daemon=wait", "--daemon-wait-timeout=3"}));
  EXPECT_TRUE(line.stop);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(Combination, NothingElseCanBeDoneToDaemons) {
  for (const char* method : {"--method=restart", "--method=Start", "--method=starts",
                             "--method=apply_host_profile", "--method=", "--trace"}) {
    EXPECT_FALSE(isValid({"--daemon", method})) << method;
    EXPECT_THAT(records(), ElementsAre(kInvalid)) << method;
    EXPECT_EQ(printed_, "") << method;
  }
}

TEST_F(Combination, DaemonModeGoesWithNoOtherMode) {
  for (const char* other : {"--interactive", "--invoke", "--init", "--plugin=a.json"}) {
    for (const char* method : {"--method=start", "--method=stop"}) {
      EXPECT_FALSE(isValid({"--daemon", method, other})) << other;
      EXPECT_THAT(records(), ElementsAre(kInvalid)) << other;
      EXPECT_EQ(printed_, "") << other;
    }
  }
}

TEST_F(Combination, DaemonModeIsJudgedBeforeInvokeMode) {
  EXPECT_FALSE(isValid({"--daemon", "--invoke"}));
  EXPECT_THAT(records(), ElementsAre(kInvalid));
  EXPECT_EQ(printed_, "");
}

TEST_F(Combination, DaemonModeGoesWithEverythingElse) {
  EXPECT_TRUE(
      isValid({"--daemon", "--method=start", "--parallel", "--randomize=1", "--trace", "--verbose",
               "--plugin-flags=a", "--run-once=k", "--disable-plugins=d", "--plugin-directory=/x",
               "--dump-dependency-tree", "--interactive-mode-requires=i", "--plugin=,"}));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(Combination, InteractiveThatParallelSwitchedOffDoesNotCount) {
  EXPECT_TRUE(isValid({"--daemon", "--method=start", "--interactive", "--parallel"}));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(Combination, InvokeNeedsAMethodAndAPlugin) {
  EXPECT_TRUE(isValid({"--invoke", "--method=anything", "--plugin=a.json"}));
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(printed_, "");

  const std::vector<std::vector<std::string>> lacking = {
      {"--invoke"},
      {"--invoke", "--method=start"},
      {"--invoke", "--plugin=a.json"},
      {"--invoke", "--method=", "--plugin=a.json"},
      {"--invoke", "--method=start", "--plugin=,"},
      {"--invoke", "--init"}};
  for (const auto& words : lacking) {
    EXPECT_FALSE(isValid(words));
    EXPECT_THAT(records(), ElementsAre(kInvokeLacks));
    EXPECT_EQ(printed_.substr(0, 42), " -h,--help                  display this h");
  }
}

TEST_F(Combination, AMethodOrAPluginWithoutInvokeIsNoMistake) {
  EXPECT_TRUE(isValid({"--method=start"}));
  EXPECT_TRUE(isValid({"--plugin=a.json"}));
  EXPECT_TRUE(isValid({"--init", "--interactive"}));
  EXPECT_THAT(records(), IsEmpty());
}

using CombinationRun = test::ProgramTest;

TEST_F(CombinationRun, AnInvalidCombinationEndsTheProgramBeforeItStartsAnything) {
  std::vector<doubles::Record> expected = test::logSetUp();
  expected.push_back(kInvalid);
  for (const char* word : {"--init", "--invoke", "--interactive", "--plugin=a"}) {
    doubles::reset();
    const test::Outcome outcome = bootforge({"--daemon", "--method=start", word});
    EXPECT_EQ(outcome.status, 1) << word;
    EXPECT_EQ(outcome.out + outcome.err, "") << word;
    EXPECT_THAT(records(), ElementsAreArray(expected)) << word;
    EXPECT_FALSE(test::exists(test::kProfile)) << word;
  }
}

TEST_F(CombinationRun, InvokeWithoutAPluginPrintsTheUsageText) {
  const std::string usage = bootforge({"--help"}).out;
  doubles::reset();
  const test::Outcome outcome = bootforge({"--invoke", "--method=start", "--init"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, usage);
  EXPECT_EQ(outcome.err, "");
  std::vector<doubles::Record> expected = test::logSetUp();
  expected.push_back(kInvokeLacks);
  EXPECT_THAT(records(), ElementsAreArray(expected));
  EXPECT_FALSE(test::exists(test::kSocket));
}

}  // namespace
}  // namespace bootforge
