// Whole boots without a mode.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "main/run_options.h"
#include "tests/unit/catalogue/gzip.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::cli;
using doubles::configStore;
using doubles::failCall;
using doubles::kernelLine;
using doubles::logLine;
using doubles::Where;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class PlainBoot : public ProgramTest {
 protected:
  static void writePlugin(const std::string& file, const std::string& text) {
    writeFile(kPlugins + file, text);
  }

  /// The lines of the log from this one on.
  static std::vector<doubles::Record> eventsFrom(const doubles::Record& first) {
    std::vector<doubles::Record> all = events();
    all.erase(all.begin(), std::find(all.begin(), all.end(), first));
    return all;
  }
};

const doubles::Record kProgressText =
    doubles::progress("ProgressText Activating Bootforge Plugins");

/// Everything that a boot without plugins tells the host.
const std::vector<doubles::Record> kEmptyBoot = {
    logLine(5, "Launching Executor\n"),
    logLine(5, "Setting up Executor - Reset Requested\n"),
    kProgressText,
    doubles::progress("StatusText "),
    logLine(5, "Bootforge executor signalled to stop\n"),
    logLine(5, "Executor has been Successfully Stopped\n"),
    configStore("EndAutoConf"),
    configStore("CleanupBootState")};

TEST_F(PlainBoot, AFolderWithoutPluginsIsABoot) {
  std::filesystem::create_directories(kPlugins);
  const Outcome outcome = bootforge({});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(events(), kEmptyBoot);
  EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=\n");
}

TEST_F(PlainBoot, TheProfileTellsTheRun) {
  writePlugin("net.json", description("[]", R"(["up"])", R"(["net up"])"));
  writePlugin("web.json", description(R"(["up"])", "[]", "[]"));
  scriptClock({1709622249, 0});
  scriptUptime(12);
  scriptTime(1700000000);
  EXPECT_EQ(bootforge({"--plugin=web.json,net.json", "--verbose"}).status, 0);
  // In the order of the list; web waited for net.
  EXPECT_EQ(readFile(kProfile),
            "HVKernel Initialization Time: 12000000\n"
            "[2024-03-05 07:04:12.000003 - 2024-03-05 07:04:13.000004] sysboot: web\n"
            "[2024-03-05 07:04:10.000001 - 2024-03-05 07:04:11.000002] sysboot: net\n"
            "=== Bootforge configuration info ===\n"
            " Start: 2024-03-05 07:04:09.000000\n"
            " End: 2024-03-05 07:04:14.000005\n"
            " Verbose: 1\n"
            " Parallel: 0\n"
            " Randomize: 0\n"
            " Interactive Mode: 0\n"
            " Random Seed: 1700000000\n");
}

TEST_F(PlainBoot, TheProfileTellsTheOptions) {
  std::filesystem::create_directories(kPlugins);
  EXPECT_EQ(bootforge({"--parallel", "--randomize=-7"}).status, 0);
  EXPECT_THAT(readFile(kProfile), EndsWith(" Verbose: 0\n Parallel: 1\n Randomize: 1\n"
                                           " Interactive Mode: 0\n Random Seed: -7\n"));
}

TEST_F(PlainBoot, AnUptimeThatCannotBeHadIsZero) {
  std::filesystem::create_directories(kPlugins);
  scriptUptime(-1);
  EXPECT_EQ(bootforge({}).status, 0);
  EXPECT_THAT(readFile(kProfile), testing::StartsWith("HVKernel Initialization Time: 0\n"));
}

TEST_F(PlainBoot, EveryEntryOfTheFolderIsLookedAt) {
  writePlugin("net.json", description("[]", "[]", "[]"));
  writePlugin("README", "hello");
  writePlugin("old.json.bak", "hello");
  writePlugin(".hidden", "hello");
  std::filesystem::create_directories(kPlugins + std::string("folder.json"));
  EXPECT_EQ(bootforge({}).status, 0);
  const std::string reason =
      "exception occurred whilst loading plugin folder.json: plugin "
      "`/usr/libexec/bootforge/plugins/folder.json' is invalid: no such file or directory";
  EXPECT_THAT(
      events(),
      AllOf(Contains(kernelLine("Bootforge plugin net activated.")),
            Contains(logLine(3, "ignoring plugin 'README' of unspecified type...\n")),
            Contains(logLine(3, "ignoring plugin 'old.json.bak' of unknown type (bak)...\n")),
            Contains(logLine(3, "ignoring plugin '.hidden' of unknown type (hidden)...\n")),
            Contains(doubles::alert(reason)), Contains(logLine(3, reason + "\n"))));
}

TEST_F(PlainBoot, NamedPluginsAreTheOnlyOnesAndInTheOrderOfTheLine) {
  for (const char* file : {"a.json", "b.json", "c.json"}) {
    writePlugin(file, description("[]", "[]", "[]"));
  }
  EXPECT_EQ(bootforge({"--plugin=c.json", "--plugin=a.json"}).status, 0);
  EXPECT_THAT(doubles::records({doubles::Kind::kKernel}),
              ElementsAre(kernelLine("Activating Bootforge plugin c."),
                          kernelLine("Bootforge plugin c activated."),
                          kernelLine("Activating Bootforge plugin a."),
                          kernelLine("Bootforge plugin a activated.")));
}

TEST_F(PlainBoot, FlagsAndTheDenyListReachDiscovery) {
  writePlugin("a.json", description("[]", "[]", "[]"));
  writePlugin("b.json",
              R"({"metadata": {"version": 3, "requires": [], "provides": [], "run_once": false,
                  "plugin_version": "", "required_flags": ["on", "off"]},
                  "operations": {"start": []}})");
  EXPECT_EQ(bootforge({"--plugin=a.json,b.json", "--plugin-flags=off", "--plugin-flags=on",
                       "--disable-plugins=a"})
                .status,
            0);
  EXPECT_THAT(events(),
              AllOf(Contains(logLine(5, "ignoring plugin 'a' due to denylist.\n")),
                    Contains(logLine(3,
                                     "ignoring plugin 'b', disabled due to missing required "
                                     "boot flags: off .\n"))));
  EXPECT_THAT(doubles::records({doubles::Kind::kKernel}), testing::IsEmpty());
  EXPECT_THAT(readFile(kProfile), Not(HasSubstr("sysboot")));
}

TEST_F(PlainBoot, InjectionsComeAfterThePluginsInTheOrderOfTheirFile) {
  writePlugin("net.json", description("[]", "[]", "[]"));
  writeFile("/etc/nimbus/bootforge/debug.conf",
            "probe two:done two:start:echo two >> /tmp/probes\n"
            "malformed\n"
            "probe one:done one:start:echo one >> /tmp/probes; exit 3\n");
  scriptClock({0, 0});
  EXPECT_EQ(bootforge({}).status, 0);
  EXPECT_EQ(readFile("/tmp/probes"), "two\none\n");
  const std::string log = readFile(kProfile);
  EXPECT_LT(log.find("sysboot: net\n"), log.find("sysboot: probe two\n"));
  EXPECT_LT(log.find("sysboot: probe two\n"), log.find("sysboot: probe one\n"));
  EXPECT_THAT(events(), Contains(logLine(5, "debug injection 'probe one' returned 0x000300\n")));
}

TEST_F(PlainBoot, InjectionsAreNotReadWhenPluginsAreNamed) {
  writePlugin("net.json", description("[]", "[]", "[]"));
  writeFile("/etc/nimbus/bootforge/debug.conf", "probe:a:b:echo ran > /tmp/probe\n");
  EXPECT_EQ(bootforge({"--plugin=net.json"}).status, 0);
  EXPECT_FALSE(exists("/tmp/probe"));
  EXPECT_EQ(bootforge({"--plugin=probe.debug"}).status, 0);
  EXPECT_TRUE(exists("/tmp/probe")) << "but a debug file may name them";
}

TEST_F(PlainBoot, TheRunOnceRecordIsWrittenAndNotRead) {
  writePlugin("net.json", runOnceDescription("1.2", R"(["net upgrade"])"));
  for (int boot = 0; boot < 2; ++boot) {
    doubles::reset();
    EXPECT_EQ(bootforge({"--run-once=mine1"}).status, 0);
    EXPECT_THAT(events(), Contains(cli("ExecuteCommand bootforge: net upgrade")));
    EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=mine1,net1.2,\n");
  }
}

TEST_F(PlainBoot, AKeyOnTheCommandLineCountsAsRun) {
  writePlugin("net.json", runOnceDescription("1.2", R"(["net upgrade"])"));
  EXPECT_EQ(bootforge({"--run-once=net1.2"}).status, 0);
  EXPECT_THAT(events(),
              AllOf(Contains(logLine(5,
                                     "ignoring plugin 'net' because version '1.2'  has already "
                                     "been run.\n")),
                    Not(Contains(cli("ExecuteCommand bootforge: net upgrade")))));
  EXPECT_THAT(readFile(kProfile), HasSubstr("[1970-01-01 00:00:00.000000 - 1970-01-01 "
                                            "00:00:00.000000] sysboot: net\n"));
}

TEST_F(PlainBoot, RandomizingDrawsFromTheUnseededGenerator) {
  std::string named = "--plugin=";
  for (const char name : std::string("abcdefgh")) {
    writePlugin(name + std::string(".json"), description("[]", "[]", "[]"));
    named += name + std::string(".json,");
  }
  const auto order = [&named](const std::vector<std::string>& words) {
    doubles::reset();
    const Outcome outcome = inChild([&] {
      std::srand(1);  // as in a fresh process
      std::vector<std::string> all = words;
      all.push_back(named);
      return runInThisProcess(all);
    });
    waitForProcesses();
    EXPECT_EQ(outcome.status, 0);
    std::string activated;
    const std::string prefix = "Activating Bootforge plugin ";
    for (const doubles::Record& record : doubles::records({doubles::Kind::kKernel})) {
      if (record.text.starts_with(prefix)) activated += record.text[prefix.size()];
    }
    return activated;
  };

  std::srand(1);
  std::string expected;
  for (std::string left = "abcdefgh"; !left.empty();) {
    const std::size_t drawn = static_cast<std::size_t>(std::rand()) % left.size();
    expected += left[drawn];
    left.erase(drawn, 1);
  }
  EXPECT_NE(expected, "abcdefgh");
  EXPECT_EQ(order({}), "abcdefgh");
  for (const char* word : {"--randomize", "--randomize=5", "--randomize=6"}) {
    EXPECT_EQ(order({word}), expected) << word;
  }
}

TEST_F(PlainBoot, TracingTellsTheTimeOfEachPlugin) {
  writePlugin("net.json", description("[]", "[]", "[]"));
  scriptClock({1709622249, 0});
  EXPECT_EQ(bootforge({"--trace"}).status, 0);
  EXPECT_THAT(eventsFrom(logLine(5, "starting execution of plugin: net\n")),
              testing::AllOf(
                  Contains(logLine(5, "starting execution of plugin: net\n")),
                  Contains(logLine(5, "completed execution of plugin: net (took 1000001 us)\n"))));
}

TEST_F(PlainBoot, ARelativePluginDirectoryIsBelowTheWorkingDirectory) {
  writeFile("/scratch/plugins/net.json", description("[]", "[]", "[]"));
  const Outcome outcome = inChild([] {
    if (::chdir("/scratch") != 0) return 99;
    const int status = runInThisProcess({"--plugin-directory=plugins"});
    std::printf("%s", RunOptions::instance().pluginDirectory.c_str());
    return status;
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "/scratch/plugins");
  EXPECT_THAT(events(), Contains(kernelLine("Bootforge plugin net activated.")));
}

TEST_F(PlainBoot, TheProgramLeavesItsDirectoryAndItsSession) {
  std::filesystem::create_directories(kPlugins);
  const Outcome outcome = inChild([] {
    if (::chdir("/tmp") != 0) return 99;
    const int status = runInThisProcess({});
    std::printf("%s %d", std::filesystem::current_path().c_str(), ::getsid(0) == ::getpid());
    return status;
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "/ 1");
}

TEST_F(PlainBoot, ADirectoryAndASessionThatCannotBeLeftAreTold) {
  std::filesystem::create_directories(kPlugins);
  failCall("chdir", {.error = EACCES, .where = Where::kOtherProcesses});
  failCall("setsid", {.error = EPERM, .where = Where::kOtherProcesses});
  EXPECT_EQ(bootforge({}).status, 0);
  std::vector<doubles::Record> expected = kEmptyBoot;
  expected.insert(expected.begin() + 2,
                  {logLine(5, "unable to change filesystem root: Permission denied.\n"),
                   logLine(5, "unable to create session: Operation not permitted.\n")});
  EXPECT_EQ(events(), expected);
}

TEST_F(PlainBoot, ABootGoesWellWithoutStandardStreams) {
  writePlugin("net.json", description("[]", "[]", R"(["net up"])"));
  const Outcome outcome = inChild([] {
    for (const int stream : {0, 1, 2}) ::close(stream);
    return runInThisProcess({});
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(events(), AllOf(Contains(cli("ExecuteCommand bootforge: net up")),
                              Contains(kernelLine("Bootforge plugin net activated."))));
}

TEST_F(PlainBoot, ABootGoesWellWhereTheEndOfChildrenIsIgnored) {
  writePlugin("net.json", description("[]", "[]", R"(["net up"])"));
  const Outcome outcome = inChild([] {
    std::signal(SIGCHLD, SIG_IGN);
    return runInThisProcess({});
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(events(), Contains(kernelLine("Bootforge plugin net activated.")));
}

TEST_F(PlainBoot, ABrokenPipeIsIgnoredFromTheStart) {
  const Outcome outcome = inChild([] {
    std::signal(SIGPIPE, SIG_DFL);
    runInThisProcess({"--bogus"});
    return std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 0 : 1;
  });
  EXPECT_EQ(outcome.status, 0);
}

}  // namespace
}  // namespace bootforge::test
