// What is left to do when the graph has run.
#include "main/closing_steps.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "cli/hypcli_executor.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::callCount;
using doubles::configStore;
using doubles::failCall;
using doubles::logLine;
using doubles::records;
using doubles::script;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kPidFile = "/var/run/nimbus/hvsyslogd.pid";
constexpr const char* kUpgradeScript = "/usr/lib/nimbus/hvsyslog/bin/upgrade-syslog.conf.sh";

volatile std::sig_atomic_t reloads = 0;

const doubles::Record kUnopenable = logLine(3, "unable to open hvksyslogd pid file.\n");
const doubles::Record kUnreadable = logLine(2, "unable to read hvsyslogd pid.\n");

/// This process plays the syslog daemon.
class SyslogReload : public ProgramTest {
 protected:
  SyslogReload() {
    reloads = 0;
    std::signal(SIGUSR1, [](int) { reloads = reloads + 1; });
  }
  ~SyslogReload() override { std::signal(SIGUSR1, SIG_DFL); }

  static void writeOwnPid(const std::string& before = "", const std::string& after = "\n") {
    writeFile(kPidFile, before + std::to_string(::getpid()) + after);
  }

  /// Expects that nobody is signalled and this line is logged.
  static void expectOnly(const doubles::Record& line) {
    doubles::reset();
    reloadSyslogDaemon();
    EXPECT_EQ(callCount("kill"), 0);
    EXPECT_EQ(reloads, 0);
    EXPECT_THAT(records(), ElementsAre(line));
  }
};

TEST_F(SyslogReload, TheDaemonIsSignalled) {
  writeOwnPid();
  reloadSyslogDaemon();
  EXPECT_EQ(reloads, 1);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(SyslogReload, WhiteSpaceAroundTheNumberAndWhatFollowsItDoNotMatter) {
  const std::pair<const char*, const char*> around[] = {
      {"", ""}, {" \t\n", "\n\n"}, {"+", "\n"}, {"000", " abc\n"}, {"", "abc"}};
  for (const auto& [before, after] : around) {
    reloads = 0;
    writeOwnPid(before, after);
    reloadSyslogDaemon();
    EXPECT_EQ(reloads, 1) << before << "PID" << after;
  }
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(SyslogReload, WithoutAPidFileNobodyIsSignalled) { expectOnly(kUnopenable); }

TEST_F(SyslogReload, AFolderInItsPlaceCannotBeOpened) {
  std::filesystem::create_directories(kPidFile);
  expectOnly(kUnopenable);
}

TEST_F(SyslogReload, AFifoInItsPlaceIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(kPidFile, 0600), 0);
  expectOnly(kUnopenable);
}

TEST_F(SyslogReload, ADeviceInItsPlaceCannotBeOpened) {
  std::filesystem::create_symlink("/dev/zero", kPidFile);
  expectOnly(kUnopenable);
}

TEST_F(SyslogReload, ADanglingLinkInItsPlaceCannotBeOpened) {
  std::filesystem::create_symlink("/nowhere", kPidFile);
  expectOnly(kUnopenable);
}

TEST_F(SyslogReload, WhatIsNoNumberIsUnreadable) {
  for (const char* text : {"", "\n", "abc\n", "-", "0x", "pid 1\n"}) {
    writeFile(kPidFile, text);
    if (std::string(text) != "0x") SCOPED_TRACE(text);
    expectOnly(kUnreadable);
  }
}

TEST_F(SyslogReload, NumbersThatAreNoProcessAreUnreadable) {
  for (const char* text : {"0\n", "-1\n", "-5\n", "2147483648\n", "4294967297\n",
                           "99999999999999999999\n", "-99999999999999999999\n"}) {
    writeFile(kPidFile, text);
    SCOPED_TRACE(text);
    expectOnly(kUnreadable);
  }
}

TEST_F(SyslogReload, AReadThatFailsIsUnreadable) {
  writeOwnPid();
  failCall("read", {.error = EIO});
  expectOnly(kUnreadable);
}

TEST_F(SyslogReload, ASignalThatCannotBeSentIsTold) {
  writeOwnPid();
  failCall("kill", {.error = ESRCH});
  reloadSyslogDaemon();
  failCall("kill", {.error = EPERM});
  reloadSyslogDaemon();
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "failed to reload hvsyslogd: No such process.\n"),
                          logLine(3, "failed to reload hvsyslogd: Operation not permitted.\n")));
}

TEST_F(SyslogReload, AnOldConfigurationIsUpgradedBeforeTheSignal) {
  writeOwnPid();
  writeFile("/etc/syslog.conf", "");
  writeFile(kUpgradeScript, "#!/bin/sh\necho \"$#\" > /tmp/upgraded\n", 0755);
  failCall("kill", {.error = ESRCH, .times = 0});
  reloadSyslogDaemon();
  EXPECT_EQ(readFile("/tmp/upgraded"), "0\n");
  EXPECT_EQ(reloads, 1);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(SyslogReload, TheUpgradeHasEndedWhenTheSignalIsSent) {
  // The upgrade itself writes the pid file, so without it there is nobody to signal.
  writeFile("/etc/syslog.conf", "");
  writeFile(kUpgradeScript,
            "#!/bin/sh\nsleep 0.1\necho " + std::to_string(::getpid()) + " > " + kPidFile + "\n",
            0755);
  reloadSyslogDaemon();
  EXPECT_EQ(reloads, 1);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(SyslogReload, AnyKindOfOldConfigurationCounts) {
  writeOwnPid();
  std::filesystem::create_directories("/etc/syslog.conf");
  writeFile(kUpgradeScript, "#!/bin/sh\n: > /tmp/upgraded\n", 0755);
  reloadSyslogDaemon();
  EXPECT_TRUE(exists("/tmp/upgraded"));
}

TEST_F(SyslogReload, AnOldConfigurationThatCannotBeLookedForIsTold) {
  writeOwnPid();
  std::filesystem::create_symlink("syslog.conf", "/etc/syslog.conf");
  writeFile(kUpgradeScript, "#!/bin/sh\n: > /tmp/upgraded\n", 0755);
  reloadSyslogDaemon();
  EXPECT_FALSE(exists("/tmp/upgraded"));
  EXPECT_EQ(reloads, 1);
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "unable to look for /etc/syslog.conf: Too many "
                                             "levels of symbolic links.\n")));
}

TEST_F(SyslogReload, WithoutAnOldConfigurationNothingIsUpgraded) {
  writeOwnPid();
  writeFile(kUpgradeScript, "#!/bin/sh\n: > /tmp/upgraded\n", 0755);
  reloadSyslogDaemon();
  EXPECT_FALSE(exists("/tmp/upgraded"));
  EXPECT_EQ(reloads, 1);
}

TEST_F(SyslogReload, AnUpgradeThatFailsIsTheUpgradesOwnMatter) {
  writeOwnPid();
  writeFile("/etc/syslog.conf", "");
  reloadSyslogDaemon();  // there is no such script, as the shell says
  writeFile(kUpgradeScript, "#!/bin/sh\nexit 3\n", 0755);
  reloadSyslogDaemon();
  EXPECT_EQ(reloads, 2);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(SyslogReload, TheUpgradeDiesOfABrokenPipeAgain) {
  writeOwnPid();
  writeFile("/etc/syslog.conf", "");
  writeFile(kUpgradeScript, "#!/bin/sh\n(yes; echo $? > /tmp/status) | head -n 1 > /dev/null\n",
            0755);
  std::signal(SIGPIPE, SIG_IGN);
  reloadSyslogDaemon();
  std::signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(readFile("/tmp/status"), std::to_string(128 + SIGPIPE) + "\n");
  EXPECT_EQ(reloads, 1);
}

TEST_F(SyslogReload, AnUpgradeThatCannotBeStartedIsTold) {
  writeOwnPid();
  writeFile("/etc/syslog.conf", "");
  failCall("posix_spawn", {.error = EAGAIN});
  reloadSyslogDaemon();
  EXPECT_EQ(reloads, 1);
  EXPECT_THAT(records(), ElementsAre(logLine(2,
                                             "failed to call /usr/lib/nimbus/hvsyslog/bin/"
                                             "upgrade-syslog.conf.sh\n")));
}

using EndOfBoot = ProgramTest;

const doubles::Record kGone = logLine(5, "Executor already gone.\n");

TEST_F(EndOfBoot, TheStepsAreTakenInOrder) {
  EXPECT_TRUE(endBoot());
  EXPECT_THAT(records(),
              ElementsAre(kGone, configStore("EndAutoConf"), configStore("CleanupBootState")));
}

TEST_F(EndOfBoot, AutoconfThatCannotBeDisabledIsToldAndTheRestIsDone) {
  script().onEndAutoConf = doubles::throwsError("busy");
  EXPECT_TRUE(endBoot());
  EXPECT_THAT(records(), ElementsAre(kGone, logLine(2, "Failed to disable autoconf: busy\n"),
                                     configStore("CleanupBootState")));
}

TEST_F(EndOfBoot, BootStateThatCannotBeCleanedIsTold) {
  script().onCleanupBootState = doubles::throwsError("read-only");
  EXPECT_TRUE(endBoot());
  EXPECT_THAT(records(), ElementsAre(kGone, configStore("EndAutoConf"),
                                     logLine(2, "Failed to cleanup boot state: read-only\n")));
}

TEST_F(EndOfBoot, WhatIsNoStandardExceptionStopsNothing) {
  script().onEndAutoConf = doubles::throwsOther();
  script().onCleanupBootState = doubles::throwsOther();
  EXPECT_TRUE(endBoot());
  EXPECT_THAT(records(),
              ElementsAre(kGone, logLine(2, "Failed to disable autoconf: unknown exception\n"),
                          logLine(2, "Failed to cleanup boot state: unknown exception\n")));
}

TEST_F(EndOfBoot, AnExecutorThatCannotBeStoppedIsToldAndTheRestIsDone) {
  const Outcome outcome = inChild([] {
    HypcliExecutor::instance().start();
    doubles::reset();
    failCall("send", {.error = EPIPE, .where = doubles::Where::kThisProcess});
    const bool stopped = endBoot();
    const std::vector<doubles::Record> all =
        records({doubles::Kind::kLog, doubles::Kind::kConfigStore});
    HypcliExecutor::instance().stop();
    EXPECT_THAT(all, testing::Contains(logLine(2,
                                               "Failed to stop Executor: Failed sending STOP to "
                                               "executorBroken pipe\n")));
    EXPECT_EQ(all.back(), configStore("CleanupBootState"));
    return stopped ? 1 : testing::Test::HasFailure() ? 2 : 0;
  });
  EXPECT_EQ(outcome.status, 0) << outcome.out;
}

TEST_F(EndOfBoot, AnExecutorThatCannotBeStoppedForNoKnownReasonIsTold) {
  script().onLog = [](const std::string& text) {
    if (text == kGone.text) throw 42;
  };
  EXPECT_FALSE(endBoot());
  EXPECT_THAT(records(), ElementsAre(logLine(2, "Failed to stop Executor\n"),
                                     configStore("EndAutoConf"), configStore("CleanupBootState")));
}

}  // namespace
}  // namespace bootforge::test
