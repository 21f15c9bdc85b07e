// Daemon mode: the host's init scripts in the order of their priorities.
#include <cerrno>
#include <filesystem>

#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::failCall;
using doubles::kernelLine;
using doubles::logLine;
using doubles::progress;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class DaemonMode : public ProgramTest {
 protected:
  /// Installs scripts that write down their calls, and the tool that lists them with priorities.
  static void install(const std::vector<std::pair<std::string, int>>& scripts) {
    std::string list = "#!/bin/sh\n";
    for (const auto& [name, priority] : scripts) {
      list += "echo /etc/init.d/" + name + " " + std::to_string(priority) + "\n";
      writeFile("/etc/init.d/" + name, "#!/bin/sh\necho \"$0\" \"$@\" >> /tmp/calls\n", 0755);
    }
    writeFile("/bin/chkconfig", list, 0755);
  }

  static std::vector<doubles::Record> started(const std::string& name) {
    return {progress("ProgressText Starting service " + name),
            kernelLine("Activating Bootforge plugin " + name + "."),
            logLine(5, "executing start plugin: " + name + "\n"),
            logLine(5, name + " started.\n"),
            kernelLine("Bootforge plugin " + name + " activated."),
            progress("Step")};
  }

  static std::vector<doubles::Record> stopped(const std::string& name) {
    return {kernelLine("Deactivating Daemon " + name + "."),
            logLine(5, "executing stop for daemon " + name + ".\n"),
            logLine(5, name + " stopped.\n"), kernelLine("Daemon " + name + " deactivated.")};
  }

  static std::vector<doubles::Record> joined(
      const std::vector<std::vector<doubles::Record>>& parts) {
    std::vector<doubles::Record> all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }
};

TEST_F(DaemonMode, ScriptsAreStartedInTheOrderOfTheirPriorities) {
  install({{"web", 30}, {"net", 10}, {"db", 20}});
  const Outcome outcome = bootforge({"--daemon=wait", "--method=start"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(readFile("/tmp/calls"),
            "/etc/init.d/net ++group=init/net start\n"
            "/etc/init.d/db ++group=init/db start\n"
            "/etc/init.d/web ++group=init/web start\n");
  // No executor, no run-once record, no end of the automatic configuration.
  EXPECT_EQ(events(), joined({started("net"), started("db"), started("web")}));
  EXPECT_FALSE(exists(kSocket));
  EXPECT_FALSE(exists(kRecord));
}

TEST_F(DaemonMode, ScriptsAreStoppedInTheReverseOrder) {
  install({{"web", 30}, {"net", 10}, {"db", 20}});
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=stop"}).status, 0);
  EXPECT_EQ(readFile("/tmp/calls"),
            "/etc/init.d/web ++group=init/web stop\n"
            "/etc/init.d/db ++group=init/db stop\n"
            "/etc/init.d/net ++group=init/net stop\n");
  EXPECT_EQ(events(), joined({stopped("web"), stopped("db"), stopped("net")}));
}

TEST_F(DaemonMode, TheDaemonsOfInitModeAreLeftAlone) {
  install({{"hvsyslogd", 1}, {"evtd", 2}, {"net", 3}, {"evtd2", 4}});
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start"}).status, 0);
  EXPECT_EQ(events(), joined({started("net"), started("evtd2")}));
}

TEST_F(DaemonMode, TheSectionIsAppendedToTheProfile) {
  install({{"web", 30}, {"net", 10}});
  writeFile(kProfile, "the boot's log\n");
  scriptClock({1709622249, 0});
  scriptTime(77);
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start", "--verbose"}).status, 0);
  EXPECT_EQ(readFile(kProfile),
            "the boot's log\n"
            "[2024-03-05 07:04:10.000001 - 2024-03-05 07:04:11.000002] daemon: net\n"
            "[2024-03-05 07:04:12.000003 - 2024-03-05 07:04:13.000004] daemon: web\n"
            "=== Daemon configuration info ===\n"
            " Start Daemon: 2024-03-05 07:04:09.000000\n"
            " End Daemon: 2024-03-05 07:04:14.000005\n"
            " Verbose: 1\n Parallel: 0\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 77\n");
}

TEST_F(DaemonMode, WithoutScriptsTheSectionIsWrittenAllTheSame) {
  const Outcome outcome = bootforge({"--daemon", "--method=start"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(events(), IsEmpty());
  EXPECT_THAT(readFile(kProfile),
              testing::StartsWith("=== Daemon configuration info ===\n Start Daemon: "));
}

TEST_F(DaemonMode, ALogThatCannotBeWrittenIsNoFailedRun) {
  install({{"net", 10}});
  std::filesystem::remove_all("/var/log");
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start"}).status, 0);
  EXPECT_EQ(events(), joined({started("net"),
                              {logLine(2,
                                       "unable to reopen profiling log (/var/log/sysboot.log): No "
                                       "such file or directory.\n")}}));
}

TEST_F(DaemonMode, AListThatCannotBeReadIsToldAndFails) {
  install({{"net", 10}});
  failCall("read", {.error = EIO, .where = doubles::Where::kOtherProcesses});
  EXPECT_EQ(bootforge({"--daemon", "--method=start"}).status, 1);
  EXPECT_THAT(events(), ElementsAre(logLine(2,
                                            "unhandled exception whilst enumerating plugins.\n"
                                            "Details:\n Failed obtaining list of init.d "
                                            "scripts \n\n")));
  EXPECT_THAT(readFile(kProfile), testing::StartsWith("=== Daemon configuration info ===\n"));
}

TEST_F(DaemonMode, AScriptThatCannotBeWrappedIsToldAndSkipped) {
  install({{"net", 10}, {"web", 10}});
  failCall("pthread_cond_init", {.error = ENOMEM, .times = 1});
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start"}).status, 0);
  EXPECT_EQ(events(),
            joined({{logLine(3,
                             "Failed to create init.d daemon plugin: /etc/init.d/net because: "
                             "Condition variable for Node could not be initialized\n")},
                    started("web")}));
}

TEST_F(DaemonMode, AScriptThatCannotBeWrappedForNoKnownReasonIsSkippedToo) {
  install({{"net", 10}, {"web", 10}});
  failFirstPriorityLevel();
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start"}).status, 0);
  EXPECT_EQ(events(),
            joined({{logLine(3, "Failed to create init.d daemon plugin: /etc/init.d/net\n")},
                    started("web")}));
}

TEST_F(DaemonMode, AScriptThatFailsStopsNothing) {
  install({{"net", 10}, {"web", 20}});
  writeFile("/etc/init.d/net", "#!/bin/sh\nexit 3\n", 0755);
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start"}).status, 0);
  EXPECT_THAT(events(), Contains(kernelLine("Bootforge plugin net activation failed: net->start() "
                                            "failed: Execution of command: /etc/init.d/net "
                                            "++group=init/net start failed with status: 3")));
  EXPECT_THAT(events(), Contains(logLine(5, "web started.\n")));
}

TEST_F(DaemonMode, AMethodIsNotHandedDownToTheScripts) {
  install({{"net", 10}});
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start"}).status, 0);
  EXPECT_THAT(events(), Contains(logLine(5, "net started.\n")));
  EXPECT_THAT(events(), Not(Contains(testing::Field(&doubles::Record::level, 2))));
}

TEST_F(DaemonMode, ADumpTakesThePlaceOfTheRun) {
  install({{"net", 10}});
  const Outcome outcome = bootforge({"--daemon", "--method=start", "--dump-dependency-tree"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, testing::StartsWith("digraph g {\n"));
  EXPECT_THAT(outcome.out, testing::HasSubstr("[label=\"_<->_priority_<->_10\" "
                                              "shape=trapezium];\n"));
  EXPECT_THAT(events(), IsEmpty());
  EXPECT_FALSE(exists("/tmp/calls"));
  EXPECT_TRUE(exists(kProfile));
}

TEST_F(DaemonMode, ADumpThatCannotBeWrittenFails) {
  install({{"net", 10}});
  EXPECT_EQ(bootforge({"--daemon", "--method=stop", "--dump-dependency-tree=/missing/x"}).status,
            1);
  EXPECT_FALSE(exists("/tmp/calls"));
}

TEST_F(DaemonMode, TheProcessorsBoundTheThreadsHereToo) {
  install({{"a", 10}, {"b", 10}, {"c", 10}});
  doubles::script().processorCount = 1;
  EXPECT_EQ(bootforge({"--daemon=wait", "--method=start", "--parallel"}).status, 0);
  EXPECT_THAT(readFile(kProfile), testing::HasSubstr(" Parallel: 1\n"));
  EXPECT_THAT(doubles::records({doubles::Kind::kKernel}), testing::SizeIs(6));
}

}  // namespace
}  // namespace bootforge::test
