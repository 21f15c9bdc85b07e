// The usage text and the usage error, to the byte. Some lines end in a blank.
#include <unistd.h>

#include "main/boot.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using testing::ElementsAreArray;

const std::string kUsage =
    " -h,--help                  display this help message\n"
    "    --init                  run in init mode (this will cause hvsyslog to be\n"
    "                            launched, and the start method to be invoked on the\n"
    "                            plugins)\n"
    "    --invoke                run a particular method from the plugin's function\n"
    "                            pointer table (requires --method)\n"
    "    --method=<method>       specifies the method identifier\n"
    "    --plugin=<plugin>[,<plugin>]\n"
    "                            comma separated list of plugins to load (note that \n"
    "                            this will prevent the loading of all plugins, and \n"
    "                            only the specified plugins will be loaded), which\n"
    "                            are specified by the filename (basename of the\n"
    "                            plugin path)\n"
    "    --trace                 trace execution of the plugins for debugging \n"
    "                            purposes\n"
    "    --verbose               logs plugin execution to syslog to aid in debugging\n"
    "    --randomize[=seed]      evaluate the execution order randomizing the\n"
    "                            order of independent jobs. Only useful for testing.\n"
    "                            You can specify an optional seed for reproducibility\n"
    "    --parallel              evaluate the execution order accounting for\n"
    "                            parallelism between jobs which are independent\n"
    "    --plugin-flags=<flag>[,<flag>]\n"
    "                            specify flags for conditional execution of plugins.\n"
    "                            If there are multiple occurences of this option, the\n"
    "                            last one is the only one that counts. See plugin\n"
    "                            documentation for which plugins support flags.\n"
    "    --interactive           prompts before performing the action, allowing\n"
    "                            plugins to be skipped, executed, or to fall to a\n"
    "                            troubleshooting shell\n"
    "    --disable-plugins=<plugin>[,<plugin>]\n"
    "                            a comma separated list of plugins to be disabled\n"
    "                            during execution, which are specified by the\n"
    "                            filename (basename of the plugin path)\n"
    "    --dump-dependency-tree[=<path>]\n"
    "                            dump plugin dependency tree information to the file\n"
    "                            specified by path.  If path is not specified, the\n"
    "                            information will be dumped to the console\n"
    "    --interactive-mode-requires=<plugin>[,<plugin>]\n"
    "                            interactive mode requires the specified plugins to \n"
    "                            be loaded before it can be activated\n"
    "    --daemon=[wait|nowait]\n"
    "                            run daemon operations (requires --method). The \n"
    "                            optional wait mode specifies whether bootforge \n"
    "                            should wait for daemon start/stop to complete. \n"
    "                            Defaults to 'nowait' if unspecified.\n"
    "    --daemon-wait-timeout=timeoutInSecs\n"
    "                            specify how long bootforge should wait for daemons \n"
    "                            to start/stop, before moving on to the next one.\n"
    "                            The default is 40 secs.\n";

const std::string kUsageLine = "usage: bootforge --help for usage information\n";

using Usage = ProgramTest;

TEST_F(Usage, HelpPrintsTheTextOnStandardOutputAndNothingElse) {
  const Outcome outcome = bootforge({"--help"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, kUsage);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(doubles::records(), ElementsAreArray(logSetUp()));
}

TEST_F(Usage, TheShortOptionDoesTheSame) {
  const Outcome outcome = bootforge({"-h"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, kUsage);
  EXPECT_EQ(outcome.err, "");
}

TEST_F(Usage, HelpAfterOtherOptionsIsGivenAtOnce) {
  const Outcome outcome = bootforge(
      {"--init", "--invoke", "--daemon", "word", "--help", "--randomize=x", "--no-such-option"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, kUsage);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(doubles::records(), ElementsAreArray(logSetUp()));
}

TEST_F(Usage, AMistakeBeforeHelpComesFirst) {
  const Outcome outcome = bootforge({"--no-such-option", "--help"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, kUsageLine);
}

TEST_F(Usage, HelpIntoAClosedPipeEndsQuietly) {
  const Outcome outcome = inChild([] {
    int ends[2];
    if (::pipe(ends) != 0) return 99;
    ::close(ends[0]);
    ::dup2(ends[1], STDOUT_FILENO);
    return runInThisProcess({"--help"});
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
}

/// One line on standard error and nothing else anywhere.
void expectUsageError(const Outcome& outcome) {
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, kUsageLine);
  EXPECT_THAT(doubles::records(), ElementsAreArray(logSetUp()));
}

TEST_F(Usage, AnUnknownOptionIsAUsageError) { expectUsageError(bootforge({"--bogus"})); }
TEST_F(Usage, AnUnknownShortOptionIsAUsageError) { expectUsageError(bootforge({"-x"})); }
TEST_F(Usage, AMissingArgumentIsAUsageError) { expectUsageError(bootforge({"--method"})); }
TEST_F(Usage, AnArgumentThatIsNotTakenIsAUsageError) { expectUsageError(bootforge({"--init=1"})); }
TEST_F(Usage, HelpTakesNoArgumentEither) { expectUsageError(bootforge({"--help=me"})); }
TEST_F(Usage, AnAmbiguousAbbreviationIsAUsageError) { expectUsageError(bootforge({"--plug=a"})); }

TEST_F(Usage, TheUsageLineHasTheNameThatTheProgramWasCalledBy) {
  const Outcome outcome = inChild([] {
    std::string name = "/usr/sbin/boot forge%s";
    std::string word = "--bogus";
    char* arguments[] = {name.data(), word.data(), nullptr};
    return runProgram(2, arguments, environ);
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "usage: /usr/sbin/boot forge%s --help for usage information\n");
}

}  // namespace
}  // namespace bootforge::test
