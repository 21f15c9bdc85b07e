// Boots on hosts where something is wrong: each has its message and its exit status, and the steps
// that are left are taken.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "cli/control_socket.h"
#include "cli/hypcli_executor.h"
#include "tests/support/file_size_limit.h"
#include "tests/unit/catalogue/gzip.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::configStore;
using doubles::failCall;
using doubles::logLine;
using doubles::Where;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const doubles::Record kStopSignalled = logLine(5, "Bootforge executor signalled to stop\n");
const doubles::Record kStopped = logLine(5, "Executor has been Successfully Stopped\n");

class FailedBoot : public ProgramTest {
 protected:
  /// The record that tells of a failed enumeration or run; its place is where it has to be.
  static std::string unhandled(std::size_t place) {
    const std::vector<doubles::Record> all = events();
    if (all.size() <= place) return "";
    const std::string prefix = "unhandled exception whilst enumerating plugins.\nDetails:\n ";
    const std::string suffix = " \n\n";
    const std::string& text = all[place].text;
    EXPECT_EQ(all[place].level, 2) << all[place];
    EXPECT_THAT(text, StartsWith(prefix));
    EXPECT_THAT(text, EndsWith(suffix));
    return text.substr(prefix.size(), text.size() - prefix.size() - suffix.size());
  }

  /// The last records.
  static std::vector<doubles::Record> tail(std::size_t count) {
    std::vector<doubles::Record> all = events();
    if (all.size() > count) all.erase(all.begin(), all.end() - static_cast<std::ptrdiff_t>(count));
    return all;
  }

  static void expectClosingSteps() {
    EXPECT_THAT(tail(4), ElementsAre(kStopSignalled, kStopped, configStore("EndAutoConf"),
                                     configStore("CleanupBootState")));
  }

  static void writePlugins() {
    writeFile(kPlugins + std::string("net.json"), description("[]", "[]", "[]"));
    writeFile(kPlugins + std::string("web.json"), runOnceDescription("1", "[]"));
  }
};

TEST_F(FailedBoot, AMissingPluginDirectoryIsToldAndTheBootIsClosed) {
  const Outcome outcome = bootforge({});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out + outcome.err, "");
  const std::vector<doubles::Record> all = events();
  ASSERT_EQ(all.size(), 7U);
  const std::string details = unhandled(2);
  EXPECT_THAT(details, HasSubstr("No such file or directory"));
  EXPECT_THAT(details, HasSubstr("\"/usr/libexec/bootforge/plugins\""));
  expectClosingSteps();
  // No plugin lines, and no record: the run step was never reached.
  EXPECT_THAT(readFile(kProfile), StartsWith("HVKernel Initialization Time: "));
  EXPECT_THAT(readFile(kProfile), HasSubstr("000\n=== Bootforge configuration info ===\n Start: "));
  EXPECT_FALSE(exists(kRecord));
}

TEST_F(FailedBoot, APluginDirectoryThatIsAFileIsTold) {
  writeFile("/plugins", "");
  EXPECT_EQ(bootforge({"--plugin-directory=/plugins"}).status, 1);
  EXPECT_THAT(unhandled(2), HasSubstr("Not a directory"));
  expectClosingSteps();
}

TEST_F(FailedBoot, ABadEscapeInTheInjectionsIsTold) {
  writePlugins();
  writeFile("/etc/nimbus/bootforge/debug.conf", "probe:a\\b:c:true\n");
  EXPECT_EQ(bootforge({}).status, 1);
  EXPECT_EQ(unhandled(2), "unknown escape sequence");
  EXPECT_THAT(readFile(kProfile), Not(HasSubstr("sysboot")));
  expectClosingSteps();
}

TEST_F(FailedBoot, ABadEscapeInTheInjectionsIsTheNamedPluginsMatterWhenOneIsNamed) {
  writePlugins();
  writeFile("/etc/nimbus/bootforge/debug.conf", "probe:a\\b:c:true\n");
  EXPECT_EQ(bootforge({"--plugin=net.json"}).status, 0);
  EXPECT_THAT(events(), Contains(doubles::alert("exception occurred whilst loading plugin "
                                                "net.json: unknown escape sequence")));
}

TEST_F(FailedBoot, ARecordThatCannotBeWrittenIsToldAndAllPluginsAreInTheProfile) {
  writePlugins();
  writeFile(kRecord, "the old record");
  failCall("mkstemp", {.error = EROFS, .where = Where::kOtherProcesses});
  EXPECT_EQ(bootforge({"--plugin=net.json,web.json"}).status, 1);
  const std::size_t place = events().size() - 5;
  EXPECT_EQ(unhandled(place),
            "unable to create temporary file to write '/bootbank/bootfrge.gz': Read-only file "
            "system");
  expectClosingSteps();
  EXPECT_EQ(readFile(kRecord), "the old record");
  EXPECT_THAT(readFile(kProfile), HasSubstr("] sysboot: net\n"));
  EXPECT_THAT(readFile(kProfile), HasSubstr("] sysboot: web\n"));
}

TEST_F(FailedBoot, AFullDiskKeepsTheOldRecordAndTheOldLog) {
  writePlugins();
  writeFile(kRecord, "the old record");
  writeFile(kProfile, "the old log");
  const Outcome outcome = inChild([] {
    const FileSizeLimit limit(30);
    return runInThisProcess({});
  });
  waitForProcesses();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(unhandled(events().size() - 6),
            "unable to write '/bootbank/bootfrge.gz': File too large");
  EXPECT_EQ(tail(5).front(),
            logLine(3,
                    "unable to log profiling information: unable to write '/var/log/sysboot.log': "
                    "File too large.\n"));
  expectClosingSteps();
  EXPECT_EQ(readFile(kRecord), "the old record");
  EXPECT_EQ(readFile(kProfile), "the old log");
}

// The executor has been started by then, and nobody else would ever end it.
TEST_F(FailedBoot, ARelativePluginDirectoryInAFolderThatIsGoneEndsTheExecutor) {
  const Outcome outcome = inChild([] {
    if (::mkdir("/tmp/gone", 0700) != 0 || ::chdir("/tmp/gone") != 0 || ::rmdir("/tmp/gone") != 0) {
      return 50;
    }
    return runInThisProcess({"--plugin-directory=plugins"});
  });
  waitForProcesses();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(events(), Contains(kStopSignalled));
  const std::vector<doubles::Record> all = events();
  EXPECT_EQ(all.back().level, 3);
  EXPECT_THAT(all.back().text, StartsWith("Failed to initialize bootforge: "));
  EXPECT_THAT(all.back().text, HasSubstr("No such file or directory"));
  EXPECT_THAT(events(), Not(Contains(configStore("EndAutoConf"))));
  EXPECT_FALSE(exists(kProfile));
}

TEST_F(FailedBoot, ADaemonRunInAFolderThatIsGoneHasNoExecutorToEnd) {
  const Outcome outcome = inChild([] {
    if (::mkdir("/tmp/gone", 0700) != 0 || ::chdir("/tmp/gone") != 0 || ::rmdir("/tmp/gone") != 0) {
      return 50;
    }
    return runInThisProcess({"--daemon", "--method=start", "--plugin-directory=plugins"});
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(events().size(), 1U);
  EXPECT_THAT(events().front().text, StartsWith("Failed to initialize bootforge: "));
}

TEST_F(FailedBoot, ARecordThatCannotBeSyncedKeepsTheOldOne) {
  writePlugins();
  writeFile(kRecord, "the old record");
  failCall("fsync", {.error = EIO, .where = Where::kOtherProcesses});
  EXPECT_EQ(bootforge({}).status, 1);
  EXPECT_EQ(unhandled(events().size() - 5),
            "unable to sync the new '/bootbank/bootfrge.gz': Input/output error");
  expectClosingSteps();
  EXPECT_EQ(readFile(kRecord), "the old record");
}

TEST_F(FailedBoot, WorkersThatCannotBeHadAreTold) {
  writePlugins();
  writeFile("/stateless.tgz", "");
  failCall("pthread_cond_init", {.error = ENOMEM, .times = 1, .skip = 2});  // behind two nodes
  EXPECT_EQ(bootforge({"--plugin=net.json,web.json"}).status, 1);
  EXPECT_EQ(unhandled(2), "Condition variable for Executor could not be initialized");
  EXPECT_THAT(readFile(kProfile),
              HasSubstr("[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: net\n"
                        "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: web\n"
                        "=== "));
  EXPECT_FALSE(exists(kRecord));
  expectClosingSteps();
}

TEST_F(FailedBoot, WhatIsNoStandardExceptionEndsTheRunAndNotTheBoot) {
  writePlugins();
  doubles::script().processorCountError = ENOSYS;
  doubles::script().onLog = [](const std::string& text) {
    if (text.starts_with("unable to obtain the processor count")) throw 42;
  };
  EXPECT_EQ(bootforge({"--plugin=net.json", "--parallel"}).status, 1);
  EXPECT_EQ(unhandled(2), "unknown exception");
  expectClosingSteps();
}

TEST_F(FailedBoot, ALogThatCannotBeWrittenIsNoFailedBoot) {
  writePlugins();
  std::filesystem::remove_all("/var/log");
  EXPECT_EQ(bootforge({}).status, 0);
  EXPECT_THAT(events(), Contains(logLine(
                            3, "Failed opening log file /var/log/bootforge-hypcli-stdout.log\n")));
  EXPECT_EQ(tail(5).front(),
            logLine(2,
                    "unable to open profiling log (/var/log/sysboot.log): No such file or "
                    "directory.\n"));
  expectClosingSteps();
}

// --- the executor process

const doubles::Record kLaunching = logLine(5, "Launching Executor\n");
const doubles::Record kReset = logLine(5, "Setting up Executor - Reset Requested\n");
const doubles::Record kNotStarted =
    logLine(3, "Failed to start executor Bootforge executor failed to start\n");

TEST_F(FailedBoot, AnExecutorThatCannotBindEndsTheBoot) {
  writePlugins();
  writeFile(kSocket, "in the way");
  const Outcome outcome = bootforge({});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_THAT(events(),
              ElementsAre(kLaunching, kReset,
                          logLine(2,
                                  "Unable to start executor: Failed to bind to executor control "
                                  "socket: Address already in use\n"),
                          kNotStarted));
  EXPECT_EQ(readFile(kSocket), "in the way");
  EXPECT_FALSE(exists(kProfile));
  EXPECT_FALSE(exists(kRecord));
}

TEST_F(FailedBoot, AMissingFolderForTheSocketEndsTheBoot) {
  std::filesystem::remove_all("/var/run/nimbus");
  EXPECT_EQ(bootforge({}).status, 1);
  EXPECT_THAT(events(),
              ElementsAre(kLaunching, kReset,
                          logLine(2,
                                  "Unable to start executor: Failed to bind to executor control "
                                  "socket: No such file or directory\n"),
                          kNotStarted));
}

TEST_F(FailedBoot, AnExecutorThatCannotBeForkedEndsTheBoot) {
  failCall("fork", {.error = EAGAIN, .times = 1, .skip = 1});
  EXPECT_EQ(bootforge({}).status, 1);
  EXPECT_THAT(events(), ElementsAre(kLaunching, kReset,
                                    logLine(3,
                                            "Failed to start executor Failed to forkResource "
                                            "temporarily unavailable\n")));
}

TEST_F(FailedBoot, AnExecutorThatFailsForNoKnownReasonEndsTheBoot) {
  doubles::script().onLog = [](const std::string& text) {
    if (text == kReset.text) throw 42;
  };
  EXPECT_EQ(bootforge({}).status, 1);
  EXPECT_THAT(events(), ElementsAre(kLaunching, logLine(3, "Failed to start executor\n")));
}

TEST_F(FailedBoot, AFailureOutsideOfEveryStepIsTold) {
  doubles::script().onLog = [](const std::string& text) {
    if (text == kLaunching.text) throw std::runtime_error("out of the blue");
  };
  EXPECT_EQ(bootforge({}).status, 1);
  EXPECT_THAT(events(),
              ElementsAre(logLine(3, "Failed to initialize bootforge: out of the blue\n")));
}

TEST_F(FailedBoot, AFailureOfNoKnownKindIsToldToo) {
  doubles::script().onLog = [](const std::string& text) {
    if (text == kLaunching.text) throw 42;
  };
  EXPECT_EQ(bootforge({}).status, 1);
  EXPECT_THAT(events(), ElementsAre(logLine(3, "Failed to initialize bootforge\n")));
}

TEST_F(FailedBoot, AnExecutorThatCannotBeStoppedIsAFailedBootThatIsClosedAllTheSame) {
  writeFile(kPlugins + std::string("net.json"), description("[]", "[]", "[]"));
  const Outcome outcome = inChild([] {
    // This process sends nothing but the request to stop.
    failCall("send", {.error = EIO, .where = Where::kThisProcess});
    return runInThisProcess({});
  });
  HypcliExecutor::instance().stop();
  waitForProcesses();
  EXPECT_EQ(outcome.status, 1);
  const std::vector<doubles::Record> all = events();
  const auto failure = std::find(
      all.begin(), all.end(),
      logLine(2, "Failed to stop Executor: Failed sending STOP to executorInput/output error\n"));
  ASSERT_NE(failure, all.end());
  // Meanwhile the executor, which may have just begun, and the test's own stop say something too.
  std::vector<doubles::Record> behind(failure + 1, all.end());
  std::erase_if(behind, [&](const auto& each) { return each.process != failure->process; });
  EXPECT_THAT(behind, ElementsAre(configStore("EndAutoConf"), configStore("CleanupBootState")));
  EXPECT_TRUE(exists(kProfile));
}

/// Returns when nobody listens on the control socket any more: an executor that was told to stop
/// ends its connection before its socket.
void waitForNoListener() {
  for (int i = 0; i < 20'000; ++i) {
    const UniqueFd probe = makeControlSocket(SOCK_NONBLOCK);
    if (connectControlSocket(probe) != 0 && errno == ECONNREFUSED) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST_F(FailedBoot, AnExecutorThatIsGoneAtTheEndIsNoFailure) {
  doubles::script().onLog = [](const std::string& text) {
    if (text.find("net->start() failed") != std::string::npos) waitForNoListener();
  };
  writeFile(kPlugins + std::string("net.json"),
            description("[]", "[]", R"(["stop it", "Stop all"])"));
  EXPECT_EQ(bootforge({}).status, 0);
  EXPECT_THAT(tail(3), ElementsAre(logLine(5, "Executor already gone.\n"),
                                   configStore("EndAutoConf"), configStore("CleanupBootState")));
}

TEST_F(FailedBoot, ConfigurationThatCannotBeEndedIsToldAndIsNoFailure) {
  writePlugins();
  doubles::script().onEndAutoConf = doubles::throwsError("busy");
  doubles::script().onCleanupBootState = doubles::throwsError("read-only");
  EXPECT_EQ(bootforge({}).status, 0);
  EXPECT_THAT(tail(4), ElementsAre(kStopSignalled, kStopped,
                                   logLine(2, "Failed to disable autoconf: busy\n"),
                                   logLine(2, "Failed to cleanup boot state: read-only\n")));
}

}  // namespace
}  // namespace bootforge::test
