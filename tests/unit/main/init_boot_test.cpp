// Whole boots in init mode.
#include <unistd.h>

#include <csignal>

#include "tests/unit/catalogue/gzip.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::cli;
using doubles::configStore;
using doubles::kernelLine;
using doubles::logLine;
using doubles::logSetup;
using doubles::progress;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr const char* kSyslogDaemon = "/usr/lib/nimbus/hvsyslog/bin/hvsyslogd";
constexpr const char* kEventDaemon = "/etc/init.d/evtd";

/// Lets a daemon's program write down how it was started.
std::string noteTaker(const std::string& name) {
  return "#!/bin/sh\n{ echo \"$0\" \"$@\"; /bin/env; } >> /tmp/" + name + "\n";
}

class InitBoot : public ProgramTest {
 protected:
  InitBoot() {
    writeFile(kSyslogDaemon, noteTaker("hvsyslogd") + "echo first >> /tmp/order\n", 0755);
    writeFile(kEventDaemon, noteTaker("evtd") + "echo second >> /tmp/order\n", 0755);
    // This process plays the syslog daemon that is reloaded.
    reloads = 0;
    std::signal(SIGUSR1, [](int) { reloads = reloads + 1; });
    writeFile("/var/run/nimbus/hvsyslogd.pid", std::to_string(::getpid()) + "\n");
    // A chain, so that there is one order only.
    writeFile(kPlugins + std::string("first.json"),
              description("[]", R"(["one"])", R"(["host set --name=a"])"));
    writeFile(kPlugins + std::string("second.json"),
              description(R"(["one"])", R"(["two"])", R"(["net up", "net down", "net up"])"));
    writeFile(kPlugins + std::string("third.json"),
              description(R"(["two"])", "[]", R"(["web start --port=80 --tls"])"));
    doubles::script().commands["net down"] = doubles::failsWith({"no net", "no down"});
  }
  ~InitBoot() override { std::signal(SIGUSR1, SIG_DFL); }

  static inline volatile std::sig_atomic_t reloads = 0;
};

TEST_F(InitBoot, EveryEventHappensInItsOrder) {
  const Outcome outcome = bootforge({"--init"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");

  std::vector<doubles::Record> expected = logSetUp();
  const std::vector<doubles::Record> boot = {
      // The syslog daemon's child, then the event daemon's.
      logSetup("Log_Detach"),
      logSetup("Log_Detach"),
      logSetup("Log_Detach"),
      logSetup("Log_Detach"),  //
      logLine(5, "Launching Executor\n"),
      logLine(5, "Setting up Executor - Reset Requested\n"),
      logSetup("Log_Detach"),  // the executor's child
      progress("ProgressText Activating Bootforge Plugins"),
      progress("StatusText "),
      kernelLine("Activating Bootforge plugin first."),
      logLine(5, "executing start plugin: first\n"),  //
      cli("Dispatcher"),
      cli("AddExternalDirectory /usr/lib/nimbus/hypcli"),
      cli("AddExternalDirectory /usr/lib/nimbus/hypcli/int"),
      cli("AddExternalDirectory /usr/lib/nimbus/hypcli/int/ext"),
      cli("AddExternalDirectory /usr/lib/nimbus/hypcli/ext"),
      cli("ExecuteCommand bootforge: host set --name=a"),
      kernelLine("Bootforge plugin first activated."),
      kernelLine("Activating Bootforge plugin second."),
      logLine(5, "executing start plugin: second\n"),
      cli("ExecuteCommand bootforge: net up"),
      cli("ExecuteCommand bootforge: net down"),
      logLine(2, "execution of 'net down' failed : no net\n"),
      logLine(2, "execution of 'net down' failed : no down\n"),
      logLine(2, "Executor failed executing hypcli command: net down\n"),
      cli("ExecuteCommand bootforge: net up"),
      logLine(2,
              "Method invocation failed: second->start() failed: error while executing the cli\n"),
      kernelLine("Bootforge plugin second activation failed: second->start() failed: error while "
                 "executing the cli"),
      kernelLine("Activating Bootforge plugin third."),
      logLine(5, "executing start plugin: third\n"),
      cli("ExecuteCommand bootforge: web start --port=80 --tls=true"),
      kernelLine("Bootforge plugin third activated."),
      logLine(5, "Bootforge executor signalled to stop\n"),
      logLine(5, "Executor has been Successfully Stopped\n"),  //
      configStore("EndAutoConf"),
      configStore("CleanupBootState")};
  expected.insert(expected.end(), boot.begin(), boot.end());

  std::vector<doubles::Record> all = doubles::records();
  // The executor's process says this when it comes to it.
  const doubles::Record polling = logLine(5, "Executor Reset - polling for commands\n");
  EXPECT_EQ(std::erase(all, polling), 1U);
  EXPECT_THAT(all, ElementsAreArray(expected));
  EXPECT_EQ(reloads, 1);
  EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=\n");
}

TEST_F(InitBoot, TheDaemonsAreStartedOneAfterTheOtherWithTheirArguments) {
  EXPECT_EQ(bootforge({"--init"}).status, 0);
  EXPECT_EQ(readFile("/tmp/order"), "first\nsecond\n");
  EXPECT_THAT(readFile("/tmp/hvsyslogd"), testing::StartsWith(std::string(kSyslogDaemon) + "\n"));
  EXPECT_THAT(readFile("/tmp/evtd"), testing::StartsWith(std::string(kEventDaemon) + " start\n"));
}

TEST_F(InitBoot, TheDaemonsHaveTheProgramsEnvironment) {
  EXPECT_EQ(bootforge({"--init"}).status, 0);
  for (const char* daemon : {"/tmp/hvsyslogd", "/tmp/evtd"}) {
    EXPECT_THAT(readFile(daemon), HasSubstr("COLOUR=blue\n"));
    EXPECT_THAT(readFile(daemon), HasSubstr("PATH=/bin\n"));
  }
}

TEST_F(InitBoot, DaemonsThatFailStopNothing) {
  writeFile(kSyslogDaemon, "#!/bin/sh\nexit 1\n", 0755);
  std::remove(kEventDaemon);
  EXPECT_EQ(bootforge({"--init"}).status, 0);
  const std::vector<doubles::Record> all = events();
  ASSERT_GE(all.size(), 2U);
  EXPECT_EQ(all[0], logLine(2, "execve(/etc/init.d/evtd) failure: No such file or directory\n"));
  EXPECT_EQ(all[1], logLine(5, "Launching Executor\n"));
  EXPECT_EQ(all.back(), configStore("CleanupBootState"));
}

TEST_F(InitBoot, TheDaemonsAreStartedBeforeAnExecutorThatCannotBe) {
  writeFile(kSocket, "in the way");
  EXPECT_EQ(bootforge({"--init"}).status, 1);
  EXPECT_EQ(readFile("/tmp/order"), "first\nsecond\n");
  EXPECT_EQ(reloads, 0) << "nothing but the start is left of such a boot";
  EXPECT_FALSE(exists(kProfile));
}

TEST_F(InitBoot, OtherModesStartAndReloadNoDaemon) {
  EXPECT_EQ(bootforge({}).status, 0);
  EXPECT_FALSE(exists("/tmp/order"));
  EXPECT_EQ(reloads, 0);
  EXPECT_EQ(bootforge({"--invoke", "--method=start", "--plugin=first.json"}).status, 0);
  EXPECT_FALSE(exists("/tmp/order"));
  EXPECT_EQ(reloads, 0);
}

TEST_F(InitBoot, TheProfileIsThereBeforeTheDaemonIsReloaded) {
  writeFile("/etc/syslog.conf", "");
  writeFile("/usr/lib/nimbus/hvsyslog/bin/upgrade-syslog.conf.sh",
            "#!/bin/sh\ncat /var/log/sysboot.log > /tmp/seen\n", 0755);
  EXPECT_EQ(bootforge({"--init"}).status, 0);
  EXPECT_EQ(readFile("/tmp/seen"), readFile(kProfile));
}

TEST_F(InitBoot, TheReloadComesBeforeTheExecutorIsStopped) {
  writeFile("/var/run/nimbus/hvsyslogd.pid", "nonsense\n");
  EXPECT_EQ(bootforge({"--init"}).status, 0) << "a reload that fails is no failed boot";
  std::vector<doubles::Record> all = events();
  ASSERT_GE(all.size(), 5U);
  all.erase(all.begin(), all.end() - 5);
  EXPECT_THAT(all, ElementsAre(logLine(2, "unable to read hvsyslogd pid.\n"),
                               logLine(5, "Bootforge executor signalled to stop\n"),
                               logLine(5, "Executor has been Successfully Stopped\n"),
                               configStore("EndAutoConf"), configStore("CleanupBootState")));
}

TEST_F(InitBoot, InvokeInInitModeDoesBoth) {
  EXPECT_EQ(bootforge({"--init", "--invoke", "--method=start", "--plugin=first.json"}).status, 0);
  EXPECT_EQ(readFile("/tmp/order"), "first\nsecond\n");
  EXPECT_EQ(reloads, 1);
  EXPECT_FALSE(exists(kProfile));
}

}  // namespace
}  // namespace bootforge::test
