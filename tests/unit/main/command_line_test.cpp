// What each option does to the run options and to what main keeps for itself.
#include "main/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "main/run_options.h"
#include "tests/unit/main/command_line_fixture.h"

namespace bootforge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CommandLineTest, WithoutOptionsEverythingHasItsDefault) {
  parse({});
  EXPECT_FALSE(line.help);
  EXPECT_FALSE(line.init);
  EXPECT_FALSE(line.daemon);
  EXPECT_FALSE(line.stop);
  EXPECT_FALSE(line.dump);
  EXPECT_EQ(line.dumpPath, "");
  EXPECT_THAT(line.bootFlags, IsEmpty());
  EXPECT_THAT(line.runOnce, IsEmpty());
  EXPECT_THAT(line.plugins, IsEmpty());
  EXPECT_EQ(line.pluginDirectory, "/usr/libexec/bootforge/plugins");

  EXPECT_FALSE(options.verbose);
  EXPECT_FALSE(options.parallel);
  EXPECT_FALSE(options.randomize);
  EXPECT_FALSE(options.interactive);
  EXPECT_FALSE(options.trace);
  EXPECT_EQ(options.threadCount, 1U);
  EXPECT_EQ(options.pluginDirectory, "");
  EXPECT_THAT(options.disabledPlugins, IsEmpty());
  EXPECT_THAT(options.interactiveModeRequires, IsEmpty());
  EXPECT_EQ(options.method, "");
  EXPECT_FALSE(options.invoke);
  EXPECT_FALSE(options.daemonWait);
  EXPECT_EQ(options.daemonWaitTimeout, 40U);
}

TEST(RunOptionsTest, TheSeedIsTheTimeOfTheirMaking) {
  const std::time_t before = std::time(nullptr);
  const RunOptions made;
  EXPECT_GE(made.randomSeed, before);
  EXPECT_LE(made.randomSeed, std::time(nullptr));
}

TEST(RunOptionsTest, ThereIsOneSetForTheProcess) {
  EXPECT_EQ(&RunOptions::instance(), &RunOptions::instance());
}

TEST_F(CommandLineTest, PlainSwitchesSetTheirOptionAndNoOther) {
  parse({"--init"});
  EXPECT_TRUE(line.init);
  parse({"--trace"});
  EXPECT_TRUE(options.trace);
  EXPECT_FALSE(options.verbose);
  EXPECT_FALSE(line.init);
  parse({"--invoke"});
  EXPECT_TRUE(options.invoke);
  EXPECT_FALSE(options.trace);
  parse({"--verbose"});
  EXPECT_TRUE(options.verbose);
  EXPECT_FALSE(options.invoke);
}

TEST_F(CommandLineTest, ParallelSwitchesInteractiveOff) {
  parse({"--interactive", "--parallel"});
  EXPECT_TRUE(options.parallel);
  EXPECT_FALSE(options.interactive);
}

TEST_F(CommandLineTest, InteractiveSwitchesParallelOff) {
  parse({"--parallel", "--interactive"});
  EXPECT_FALSE(options.parallel);
  EXPECT_TRUE(options.interactive);
}

TEST_F(CommandLineTest, OnlyTheLastPluginFlagsCount) {
  parse({"--plugin-flags=a,b", "--plugin-flags=c"});
  EXPECT_THAT(line.bootFlags, ElementsAre("c"));
}

TEST_F(CommandLineTest, PluginFlagsAreASet) {
  parse({"--plugin-flags=b,a,b,B"});
  EXPECT_THAT(line.bootFlags, ElementsAre("B", "a", "b"));
}

TEST_F(CommandLineTest, EmptyPluginFlagsClearTheSet) {
  parse({"--plugin-flags=a,b", "--plugin-flags="});
  EXPECT_THAT(line.bootFlags, IsEmpty());
}

TEST_F(CommandLineTest, TheLastMethodCounts) {
  parse({"--method=start", "--method", "stop"});
  EXPECT_EQ(options.method, "stop");
  parse({"--method=start", "--method="});
  EXPECT_EQ(options.method, "");
}

TEST_F(CommandLineTest, PluginsAccumulateInTheOrderOfTheLine) {
  parse({"--plugin=b.json,a.json", "--plugin=c.so", "--plugin", "a.json"});
  EXPECT_THAT(line.plugins, ElementsAre("b.json", "a.json", "c.so", "a.json"));
}

TEST_F(CommandLineTest, RunOnceKeysAccumulate) {
  parse({"--run-once=net1.2,ssh4", "--run-once=a"});
  EXPECT_THAT(line.runOnce, ElementsAre("a", "net1.2", "ssh4"));
}

TEST_F(CommandLineTest, DisabledPluginsAccumulate) {
  parse({"--disable-plugins=b,a", "--disable-plugins=c,a"});
  EXPECT_THAT(options.disabledPlugins, ElementsAre("b", "a", "c", "a"));
}

TEST_F(CommandLineTest, InteractiveModeRequiresAccumulate) {
  parse({"--interactive-mode-requires=b,a", "--interactive-mode-requires=c"});
  EXPECT_THAT(options.interactiveModeRequires, ElementsAre("b", "a", "c"));
  EXPECT_FALSE(options.interactive);
}

TEST_F(CommandLineTest, EmptyItemsOfListsAreDropped) {
  parse({"--plugin=,a,,b,", "--run-once=,", "--disable-plugins=", "--plugin-flags=,x",
         "--interactive-mode-requires=y,"});
  EXPECT_THAT(line.plugins, ElementsAre("a", "b"));
  EXPECT_THAT(line.runOnce, IsEmpty());
  EXPECT_THAT(options.disabledPlugins, IsEmpty());
  EXPECT_THAT(line.bootFlags, ElementsAre("x"));
  EXPECT_THAT(options.interactiveModeRequires, ElementsAre("y"));
}

TEST_F(CommandLineTest, ItemsKeepTheirBlanksAndQuotes) {
  parse({"--plugin= a b ,\"c\",d\\,e"});
  EXPECT_THAT(line.plugins, ElementsAre(" a b ", "\"c\"", "d\\", "e"));
}

TEST_F(CommandLineTest, TheLastPluginDirectoryCounts) {
  parse({"--plugin-directory=/a", "--plugin-directory=b/c"});
  EXPECT_EQ(line.pluginDirectory, "b/c");
  EXPECT_EQ(options.pluginDirectory, "") << "it is made absolute later";
}

TEST_F(CommandLineTest, ADumpGoesToStandardOutputOrToAPath) {
  parse({"--dump-dependency-tree"});
  EXPECT_TRUE(line.dump);
  EXPECT_EQ(line.dumpPath, "");
  parse({"--dump-dependency-tree=/tmp/tree"});
  EXPECT_TRUE(line.dump);
  EXPECT_EQ(line.dumpPath, "/tmp/tree");
}

TEST_F(CommandLineTest, TheLastDumpPathCounts) {
  parse({"--dump-dependency-tree=/a", "--dump-dependency-tree=/b"});
  EXPECT_EQ(line.dumpPath, "/b");
  parse({"--dump-dependency-tree=/a", "--dump-dependency-tree"});
  EXPECT_EQ(line.dumpPath, "");
}

TEST_F(CommandLineTest, DaemonWaitsOnlyWhenToldTo) {
  parse({"--daemon=wait"});
  EXPECT_TRUE(line.daemon);
  EXPECT_TRUE(options.daemonWait);
  for (const char* word : {"--daemon=nowait", "--daemon=foo", "--daemon",
                           "--daemon=", "--daemon=Wait", "--daemon=wait "}) {
    parse({word});
    EXPECT_TRUE(line.daemon) << word;
    EXPECT_FALSE(options.daemonWait) << word;
  }
}

TEST_F(CommandLineTest, TheLastDaemonCounts) {
  parse({"--daemon=wait", "--daemon"});
  EXPECT_FALSE(options.daemonWait);
  parse({"--daemon", "--daemon=wait"});
  EXPECT_TRUE(options.daemonWait);
}

TEST_F(CommandLineTest, TheLastWaitTimeoutCounts) {
  parse({"--daemon-wait-timeout=3", "--daemon-wait-timeout", "5"});
  EXPECT_EQ(options.daemonWaitTimeout, 5U);
  EXPECT_FALSE(line.daemon);
}

// --- the manner of getopt_long

TEST_F(CommandLineTest, AnArgumentThatIsNeededMayBeAWordOfItsOwn) {
  parse({"--plugin", "a.json", "--plugin-flags", "--trace", "--method", "start"});
  EXPECT_THAT(line.plugins, ElementsAre("a.json"));
  EXPECT_THAT(line.bootFlags, ElementsAre("--trace"));
  EXPECT_FALSE(options.trace);
  EXPECT_EQ(options.method, "start");
}

TEST_F(CommandLineTest, AnArgumentThatIsOptionalMayNot) {
  parse({"--daemon", "wait", "--dump-dependency-tree", "/tmp/tree", "--randomize", "5"});
  EXPECT_FALSE(options.daemonWait);
  EXPECT_EQ(line.dumpPath, "");
  EXPECT_TRUE(options.randomize);
  EXPECT_EQ(options.randomSeed, kUntouchedSeed);
}

TEST_F(CommandLineTest, WordsThatAreNoOptionsAreIgnoredWhereverTheyStand) {
  parse({"start", "--verbose", "a.json", "-", "", "--trace", "stop"});
  EXPECT_TRUE(options.verbose);
  EXPECT_TRUE(options.trace);
  EXPECT_EQ(options.method, "");
  EXPECT_THAT(line.plugins, IsEmpty());
}

TEST_F(CommandLineTest, AfterTwoDashesNothingIsAnOption) {
  parse({"--verbose", "--", "--trace", "--bogus", "-h"});
  EXPECT_TRUE(options.verbose);
  EXPECT_FALSE(options.trace);
  EXPECT_FALSE(line.help);
}

TEST_F(CommandLineTest, UnambiguousAbbreviationsAreUnderstood) {
  parse({"--verb", "--par", "--ran=7", "--dump=/x", "--dis=a", "--inv", "--ini", "--t", "--m=start",
         "--run=k", "--plugin-f=f", "--plugin-d=/p", "--daemon-w=9", "--interactive-m=i"});
  EXPECT_TRUE(options.verbose);
  EXPECT_TRUE(options.parallel);
  EXPECT_EQ(options.randomSeed, 7);
  EXPECT_EQ(line.dumpPath, "/x");
  EXPECT_THAT(options.disabledPlugins, ElementsAre("a"));
  EXPECT_TRUE(options.invoke);
  EXPECT_TRUE(line.init);
  EXPECT_TRUE(options.trace);
  EXPECT_EQ(options.method, "start");
  EXPECT_THAT(line.runOnce, ElementsAre("k"));
  EXPECT_THAT(line.bootFlags, ElementsAre("f"));
  EXPECT_EQ(line.pluginDirectory, "/p");
  EXPECT_EQ(options.daemonWaitTimeout, 9U);
  EXPECT_THAT(options.interactiveModeRequires, ElementsAre("i"));
}

TEST_F(CommandLineTest, AWholeNameIsNoAbbreviationOfALongerOne) {
  parse({"--plugin=a", "--interactive", "--daemon=wait"});
  EXPECT_THAT(line.plugins, ElementsAre("a"));
  EXPECT_TRUE(options.interactive);
  EXPECT_TRUE(options.daemonWait);
}

TEST_F(CommandLineTest, AmbiguousAbbreviationsAreMistakes) {
  for (const char* word : {"--plug=a", "--inter", "--in", "--i", "--r=1", "--d", "--da"}) {
    EXPECT_FALSE(isUnderstood({word})) << word;
  }
}

TEST_F(CommandLineTest, MistakesAreSeen) {
  for (const char* word :
       {"--bogus", "-x", "-hx", "-vh", "-?", "--Init", "--init=", "--verbose=1",
        "--help=", "--method", "--plugin", "--plugin-flags", "--run-once", "--disable-plugins",
        "--plugin-directory", "--interactive-mode-requires", "--daemon-wait-timeout", "--=x"}) {
    const bool helpFirst = std::string(word) == "-hx";
    EXPECT_EQ(isUnderstood({word}), helpFirst) << word;
  }
}

TEST_F(CommandLineTest, NothingAfterHelpIsLookedAt) {
  parse({"--verbose", "-h", "--trace", "--bogus", "--randomize=x"});
  EXPECT_TRUE(line.help);
  EXPECT_TRUE(options.verbose);
  EXPECT_FALSE(options.trace);
  EXPECT_FALSE(options.randomize);
}

}  // namespace
}  // namespace bootforge
