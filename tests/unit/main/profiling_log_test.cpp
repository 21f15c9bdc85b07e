// The boot profiling log, to the byte.
#include "main/profiling_log.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "graph/executor.h"
#include "graph/graph.h"
#include "main/run_options.h"
#include "tests/support/file_size_limit.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::failCall;
using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class SilentPlugin : public Plugin {
 public:
  explicit SilentPlugin(std::string name) : Plugin(std::move(name)) {}
  void start() override {}
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override {}
};

class ProfilingLog : public ProgramTest {
 protected:
  ProfilingLog() {
    options.randomSeed = -7;
    profile.kernelMicroseconds = 12'000'000;
    profile.start = {1709622249, 321};  // 2024-03-05 07:04:09
    profile.end = {1709622250, 999999};
    profile.plugins = &plugins;
  }
  ~ProfilingLog() override { options = RunOptions(); }

  /// Adds a plugin that has run for a second and a microsecond from that time on.
  void addRun(const std::string& name, timeval start) {
    plugins.push_back(std::make_unique<SilentPlugin>(name));
    scriptClock(start);
    {
      Executor executor(1, false);
      Graph({plugins.back().get()}).runForward(executor);
    }
    doubles::reset();
  }

  void addNeverRun(const std::string& name) {
    plugins.push_back(std::make_unique<SilentPlugin>(name));
  }

  /// The old log as it was, nothing beside it.
  static void expectOldLog() {
    EXPECT_EQ(readFile(kProfile), "old log\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/var/log"), {}), 1);
  }

  RunOptions& options = RunOptions::instance();
  PluginList plugins;
  Profile profile;
};

constexpr const char* kOptionsAllOff =
    " Verbose: 0\n Parallel: 0\n Randomize: 0\n Interactive Mode: 0\n Random Seed: -7\n";
constexpr const char* kNever = "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000]";

const std::string kBootSection =
    "HVKernel Initialization Time: 12000000\n"
    "[2024-03-05 07:04:09.000322 - 2024-03-05 07:04:10.000323] sysboot: net\n" +
    std::string(kNever) +
    " sysboot: left alone\n"
    "=== Bootforge configuration info ===\n"
    " Start: 2024-03-05 07:04:09.000321\n"
    " End: 2024-03-05 07:04:10.999999\n" +
    kOptionsAllOff;

TEST_F(ProfilingLog, ABootIsTold) {
  addRun("net", {1709622249, 322});
  addNeverRun("left alone");
  writeBootProfile(profile);
  EXPECT_EQ(readFile(kProfile), kBootSection);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(ProfilingLog, PluginsAreInTheOrderOfTheirList) {
  for (const char* name : {"b", "a", "c"}) addNeverRun(name);
  writeBootProfile(profile);
  const std::string log = readFile(kProfile);
  EXPECT_THAT(log, testing::HasSubstr(std::string(kNever) + " sysboot: b\n" + kNever +
                                      " sysboot: a\n" + kNever + " sysboot: c\n=== Boot"));
}

TEST_F(ProfilingLog, WithoutAListThereAreNoPluginLines) {
  profile.plugins = nullptr;
  writeBootProfile(profile);
  EXPECT_EQ(readFile(kProfile),
            "HVKernel Initialization Time: 12000000\n"
            "=== Bootforge configuration info ===\n"
            " Start: 2024-03-05 07:04:09.000321\n"
            " End: 2024-03-05 07:04:10.999999\n" +
                std::string(kOptionsAllOff));
}

TEST_F(ProfilingLog, OptionsAreDigitsAndTheSeedIsSigned) {
  options.verbose = options.parallel = options.randomize = options.interactive = true;
  options.randomSeed = 2147483648;
  writeBootProfile(profile);
  EXPECT_THAT(readFile(kProfile),
              testing::EndsWith(" Verbose: 1\n Parallel: 1\n Randomize: 1\n Interactive Mode: 1\n"
                                " Random Seed: 2147483648\n"));
}

TEST_F(ProfilingLog, EachOptionHasItsOwnLine) {
  bool* const switches[] = {&options.verbose, &options.parallel, &options.randomize,
                            &options.interactive};
  const char* const labels[] = {" Verbose: ", " Parallel: ", " Randomize: ", " Interactive Mode: "};
  for (std::size_t on = 0; on < 4; ++on) {
    std::string expected;
    for (std::size_t i = 0; i < 4; ++i) {
      *switches[i] = i == on;
      expected += std::string(labels[i]) + (i == on ? "1\n" : "0\n");
    }
    writeBootProfile(profile);
    EXPECT_THAT(readFile(kProfile), testing::EndsWith(expected + " Random Seed: -7\n"));
  }
}

TEST_F(ProfilingLog, ALongUptimeIsANumberOfMicroseconds) {
  profile.kernelMicroseconds = 18'446'744'073'709'000'000U;
  writeBootProfile(profile);
  EXPECT_THAT(readFile(kProfile),
              testing::StartsWith("HVKernel Initialization Time: 18446744073709000000\n"));
}

TEST_F(ProfilingLog, TheOldLogIsReplacedAndItsPermissionsAreKept) {
  writeFile(kProfile, "old log\n", 0644);
  writeBootProfile(profile);
  EXPECT_THAT(readFile(kProfile), testing::StartsWith("HVKernel"));
  EXPECT_EQ(std::filesystem::status(kProfile).permissions(), std::filesystem::perms(0644));
}

TEST_F(ProfilingLog, TimesAreUtcWithMicroseconds) {
  EXPECT_EQ(formatTime({0, 0}), "1970-01-01 00:00:00.000000");
  EXPECT_EQ(formatTime({1709622249, 321}), "2024-03-05 07:04:09.000321");
  EXPECT_EQ(formatTime({1709164799, 999999}), "2024-02-28 23:59:59.999999");
  EXPECT_EQ(formatTime({1709164800, 0}), "2024-02-29 00:00:00.000000");
  EXPECT_EQ(formatTime({4294967296, 5}), "2106-02-07 06:28:16.000005");
  ::setenv("TZ", "EST5EDT", 1);
  ::tzset();
  EXPECT_EQ(formatTime({1709622249, 321}), "2024-03-05 07:04:09.000321");
  ::unsetenv("TZ");
  ::tzset();
}

TEST_F(ProfilingLog, WithoutAFolderTheLogIsSkipped) {
  std::filesystem::remove_all("/var/log");
  writeBootProfile(profile);
  EXPECT_THAT(records(), ElementsAre(logLine(2,
                                             "unable to open profiling log "
                                             "(/var/log/sysboot.log): No such file or "
                                             "directory.\n")));
}

TEST_F(ProfilingLog, AReadOnlyFolderKeepsTheOldLog) {
  writeFile(kProfile, "old log\n");
  failCall("mkstemp", {.error = EROFS});
  writeBootProfile(profile);
  EXPECT_THAT(records(), ElementsAre(logLine(2,
                                             "unable to open profiling log "
                                             "(/var/log/sysboot.log): Read-only file "
                                             "system.\n")));
  expectOldLog();
}

TEST_F(ProfilingLog, AFullDiskKeepsTheOldLog) {
  writeFile(kProfile, "old log\n");
  {
    const FileSizeLimit limit(100);
    writeBootProfile(profile);
  }
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "unable to log profiling information: unable to "
                                             "write '/var/log/sysboot.log': File too large.\n")));
  expectOldLog();
}

TEST_F(ProfilingLog, ADiskThatFillsUpInTheMiddleOfALongLogKeepsTheOldOne) {
  writeFile(kProfile, "old log\n");
  for (int i = 0; i < 1000; ++i) addNeverRun("plugin" + std::to_string(i));
  for (const rlim_t room : {100U, 8192U, 20000U}) {
    doubles::reset();
    const FileSizeLimit limit(room);
    writeBootProfile(profile);
    EXPECT_THAT(records(), ElementsAre(logLine(3,
                                               "unable to log profiling information: unable to "
                                               "write '/var/log/sysboot.log': File too large.\n")));
  }
  expectOldLog();
}

TEST_F(ProfilingLog, ARenameThatFailsKeepsTheOldLog) {
  writeFile(kProfile, "old log\n");
  failCall("rename", {.error = EIO});
  writeBootProfile(profile);
  const std::vector<doubles::Record> all = records();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].level, 3);
  EXPECT_THAT(all[0].text, MatchesRegex("unable to log profiling information: unable to rename "
                                        "'/var/log/sysboot\\.log\\.[A-Za-z0-9]{6}' to "
                                        "'/var/log/sysboot\\.log': Input/output error\\.\n"));
  expectOldLog();
}

TEST_F(ProfilingLog, PermissionsThatCannotBeRestoredAreTold) {
  writeFile(kProfile, "old log\n");
  failCall("chmod", {.error = EPERM});
  writeBootProfile(profile);
  EXPECT_THAT(records(),
              ElementsAre(logLine(3,
                                  "unable to log profiling information: failed to restore file "
                                  "permissions, file permissions may be incorrect: Operation "
                                  "not permitted.\n")));
  EXPECT_THAT(readFile(kProfile), testing::StartsWith("HVKernel"));
}

TEST_F(ProfilingLog, AFailedSyncKeepsTheOldLogAndIsTold) {
  writeFile(kProfile, "old log\n");
  failCall("fsync", {.error = ENOSPC});
  writeBootProfile(profile);
  EXPECT_THAT(records(),
              ElementsAre(logLine(3,
                                  "unable to log profiling information: unable to sync the new "
                                  "'/var/log/sysboot.log': No space left on device.\n")));
  expectOldLog();
}

TEST_F(ProfilingLog, ALogThatMayNotLastIsTold) {
  failCall("fsync", {.error = EIO, .skip = 1});
  writeBootProfile(profile);
  EXPECT_THAT(records(),
              ElementsAre(logLine(3,
                                  "unable to log profiling information: '/var/log/sysboot.log' is "
                                  "replaced, but may not survive a power cut: Input/output "
                                  "error.\n")));
  EXPECT_THAT(readFile(kProfile), testing::StartsWith("HVKernel"));
}

// A file that was there before us may be anybody's.
TEST_F(ProfilingLog, APlantedFileDoesNotSayWhoMayWriteTheLog) {
  writeFile(kProfile, "planted");
  if (::chown(kProfile, 54321, 54321) != 0) GTEST_SKIP() << "there is no other user here";
  ASSERT_EQ(::chmod(kProfile, 04777), 0);
  writeBootProfile(profile);
  struct stat status {};
  ASSERT_EQ(::stat(kProfile, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0600});
  EXPECT_EQ(status.st_uid, ::geteuid());
}

TEST_F(ProfilingLog, AFolderInThePlaceOfTheLogIsTold) {
  std::filesystem::create_directories(kProfile);
  writeBootProfile(profile);
  const std::vector<doubles::Record> all = records();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].level, 3);
  EXPECT_THAT(all[0].text, testing::EndsWith(": Is a directory.\n"));
}

}  // namespace
}  // namespace bootforge::test
