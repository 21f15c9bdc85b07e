// The daemons' section of the boot profiling log.
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "main/profiling_log.h"
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

class IdlePlugin : public Plugin {
 public:
  explicit IdlePlugin(std::string name) : Plugin(std::move(name)) {}
  void start() override {}
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override {}
};

constexpr const char* kOldLog = "the boot's log\nwithout an end";

const std::string kDaemonSection =
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] daemon: sshd\n"
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] daemon: crond\n"
    "=== Daemon configuration info ===\n"
    " Start Daemon: 2024-03-05 07:04:09.000321\n"
    " End Daemon: 2024-03-05 07:04:10.999999\n"
    " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n";

class DaemonProfile : public ProgramTest {
 protected:
  DaemonProfile() {
    options.randomSeed = 5;
    options.parallel = true;
    for (const char* name : {"sshd", "crond"}) {
      plugins.push_back(std::make_unique<IdlePlugin>(name));
    }
    profile.kernelMicroseconds = 12'000'000;
    profile.start = {1709622249, 321};
    profile.end = {1709622250, 999999};
    profile.plugins = &plugins;
  }
  ~DaemonProfile() override { options = RunOptions(); }

  static void expectOldLog() {
    EXPECT_EQ(readFile(kProfile), kOldLog);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/var/log"), {}), 1);
  }

  RunOptions& options = RunOptions::instance();
  PluginList plugins;
  Profile profile;
};

TEST_F(DaemonProfile, TheSectionIsAppendedToTheBytesThatAreThere) {
  writeFile(kProfile, kOldLog, 0640);
  appendDaemonProfile(profile);
  EXPECT_EQ(readFile(kProfile), kOldLog + kDaemonSection);
  EXPECT_EQ(std::filesystem::status(kProfile).permissions(), std::filesystem::perms(0640));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DaemonProfile, EachRunAppendsItsOwn) {
  appendDaemonProfile(profile);
  appendDaemonProfile(profile);
  EXPECT_EQ(readFile(kProfile), kDaemonSection + kDaemonSection);
}

TEST_F(DaemonProfile, ALongLogIsKeptWhole) {
  std::string old(300'000, 'x');
  old[70'000] = '\0';
  writeFile(kProfile, old);
  appendDaemonProfile(profile);
  EXPECT_TRUE(readFile(kProfile) == old + kDaemonSection);
}

TEST_F(DaemonProfile, WithoutAnOldLogANewOneIsBegun) {
  appendDaemonProfile(profile);
  EXPECT_EQ(readFile(kProfile), kDaemonSection);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DaemonProfile, AnEmptyOldLogIsBegunAnew) {
  writeFile(kProfile, "");
  appendDaemonProfile(profile);
  EXPECT_EQ(readFile(kProfile), kDaemonSection);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DaemonProfile, WithoutAFolderTheLogIsSkipped) {
  std::filesystem::remove_all("/var/log");
  appendDaemonProfile(profile);
  EXPECT_THAT(records(), ElementsAre(logLine(2,
                                             "unable to reopen profiling log "
                                             "(/var/log/sysboot.log): No such file or "
                                             "directory.\n")));
}

TEST_F(DaemonProfile, AReadOnlyFolderKeepsTheOldLog) {
  writeFile(kProfile, kOldLog);
  failCall("mkstemp", {.error = EROFS});
  appendDaemonProfile(profile);
  EXPECT_THAT(records(), ElementsAre(logLine(2,
                                             "unable to reopen profiling log "
                                             "(/var/log/sysboot.log): Read-only file "
                                             "system.\n")));
  expectOldLog();
}

TEST_F(DaemonProfile, AnOldLogThatCannotBeReadIsNotReplaced) {
  writeFile(kProfile, kOldLog);
  failCall("open", {.error = EACCES});
  appendDaemonProfile(profile);
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "unable to log daemon profiling information: "
                                             "failed to write to temp file: Permission "
                                             "denied.\n")));
  expectOldLog();
}

TEST_F(DaemonProfile, AnOldLogThatIsReadInPartOnlyIsNotReplaced) {
  writeFile(kProfile, kOldLog);
  failCall("read", {.error = EIO});
  appendDaemonProfile(profile);
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "unable to log daemon profiling information: "
                                             "failed to write to temp file: Input/output "
                                             "error.\n")));
  expectOldLog();
}

TEST_F(DaemonProfile, AFifoInThePlaceOfTheLogIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(kProfile, 0600), 0);
  appendDaemonProfile(profile);
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "unable to log daemon profiling information: "
                                             "failed to write to temp file: No such device or "
                                             "address.\n")));
}

TEST_F(DaemonProfile, AFullDiskKeepsTheOldLog) {
  writeFile(kProfile, kOldLog);
  {
    const FileSizeLimit limit(60);
    appendDaemonProfile(profile);
  }
  EXPECT_THAT(records(),
              ElementsAre(logLine(3,
                                  "unable to log daemon profiling information: "
                                  "unable to write '/var/log/sysboot.log': File too large.\n")));
  expectOldLog();
}

}  // namespace
}  // namespace bootforge::test
