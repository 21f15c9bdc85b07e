// How a plugin is run (graph/activation.cpp), without the operator's prompt.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "main/run_options.h"
#include "plugins/exceptions.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "tests/support/own_process.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/graph/graph_builder.h"
#include "tests/unit/graph/test_plugin.h"

namespace bootforge::test {
namespace {

using doubles::kernelLine;
using doubles::logLine;
using doubles::Record;
using doubles::records;
using testing::ElementsAre;
using testing::ElementsAreArray;

class Activation : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    RunOptions::instance() = RunOptions();
  }
  void TearDown() override { RunOptions::instance() = RunOptions(); }

  void activate(TestPlugin& plugin) {
    Executor executor(0, false);
    plugin.run(executor);
  }

  /// Activates a plugin whose start does this, with what is logged along the way.
  std::vector<Record> recordsOfStarting(std::function<void()> onStart) {
    TestPlugin plugin("network");
    plugin.onStart = std::move(onStart);
    activate(plugin);
    return records();
  }

  /// The same for a method that is invoked.
  std::vector<Record> recordsOfInvoking(const std::string& method, std::function<void()> body) {
    RunOptions::instance().invoke = true;
    RunOptions::instance().method = method;
    TestPlugin plugin("network");
    plugin.onStart = plugin.onApplyHostProfile = std::move(body);
    activate(plugin);
    return records();
  }

  const Record kActivating = kernelLine("Activating Bootforge plugin network.");
  const Record kActivated = kernelLine("Bootforge plugin network activated.");
  const Record kStarting = logLine(5, "executing start plugin: network\n");
  const Record kApplying = logLine(5, "executing host profile plugin: network\n");
};

TEST_F(Activation, StartsThePluginAndSaysSo) {
  bool started = false;
  EXPECT_THAT(recordsOfStarting([&started] { started = true; }),
              ElementsAre(kActivating, kStarting, kActivated));
  EXPECT_TRUE(started);
}

TEST_F(Activation, ReportsAMethodThatFailed) {
  EXPECT_THAT(
      recordsOfStarting([] { throw MethodFailedException("network", "start", "no link"); }),
      ElementsAre(kActivating, kStarting,
                  logLine(2, "Method invocation failed: network->start() failed: no link\n"),
                  kernelLine("Bootforge plugin network activation failed: "
                             "network->start() failed: no link")));
}

TEST_F(Activation, ReportsAnyOtherStandardException) {
  EXPECT_THAT(
      recordsOfStarting([] { throw std::runtime_error("100% broken, %s"); }),
      ElementsAre(kActivating, kStarting,
                  logLine(2, "unhandled exception whilst processing network: 100% broken, %s\n"),
                  kernelLine("Bootforge plugin network activation failed: 100% broken, %s")));
}

TEST_F(Activation, ReportsAnExceptionOfOurOwnThatIsNoFailedMethod) {
  EXPECT_THAT(
      recordsOfStarting([] { throw NotImplementedException("X::Start"); }),
      ElementsAre(kActivating, kStarting,
                  logLine(2,
                          "unhandled exception whilst processing network: method `X::Start' is not "
                          "implemented\n"),
                  kernelLine("Bootforge plugin network activation failed: method `X::Start' is not "
                             "implemented")));
}

TEST_F(Activation, ReportsAnUnknownException) {
  EXPECT_THAT(
      recordsOfStarting([] { throw 42; }),
      ElementsAre(kActivating, kStarting,
                  logLine(2, "ignoring unknown exception whilst processing network ...\n"),
                  kernelLine("Bootforge plugin network activation failed: unknown exception")));
}

TEST_F(Activation, WritesANameAsItIs) {
  TestPlugin plugin("100%s \"%n\"");
  activate(plugin);
  EXPECT_THAT(records(), ElementsAre(kernelLine("Activating Bootforge plugin 100%s \"%n\"."),
                                     logLine(5, "executing start plugin: 100%s \"%n\"\n"),
                                     kernelLine("Bootforge plugin 100%s \"%n\" activated.")));
}

TEST_F(Activation, GoesOnWithoutAKernelLog) {
  doubles::script().onKernelLog = doubles::throwsError("no such device");
  bool started = false;
  EXPECT_THAT(
      recordsOfStarting([&started] { started = true; }),
      ElementsAre(doubles::syslogLine(3, "Exception occurred while logging msg: no such device"),
                  doubles::syslogLine(3, "Activating Bootforge plugin network."), kStarting,
                  doubles::syslogLine(3, "Exception occurred while logging msg: no such device"),
                  doubles::syslogLine(3, "Bootforge plugin network activated.")));
  EXPECT_TRUE(started);
}

//  failing > dependent
TEST_F(Activation, OfAPluginThatFailsStillReleasesItsDependents) {
  TestPlugin failing("failing");
  TestPlugin dependent("dependent");
  dependent.addPrerequisite(failing);
  bool started = false;
  failing.onStart = [] { throw 42; };
  dependent.onStart = [&started] { started = true; };
  Executor executor(1, false);
  dependent.scheduleForward(executor);
  dependent.waitForward();
  EXPECT_TRUE(started);
  EXPECT_EQ(stateOf(failing), Node::State::ForwardDone);
}

TEST_F(Activation, TracesItsBeginningAndItsEnd) {
  RunOptions::instance().trace = true;
  TestPlugin plugin("network");
  activate(plugin);
  const std::string took = std::to_string(plugin.activationDuration());
  EXPECT_THAT(
      records(),
      ElementsAre(logLine(5, "starting execution of plugin: network\n"), kActivating, kStarting,
                  logLine(5, "completed execution of plugin: network (took " + took + " us)\n"),
                  kActivated));
}

TEST_F(Activation, TracesTheEndOfAFailureToo) {
  RunOptions::instance().trace = true;
  TestPlugin plugin("network");
  plugin.onStart = [] { throw std::runtime_error("broken"); };
  activate(plugin);
  const std::string took = std::to_string(plugin.activationDuration());
  EXPECT_THAT(
      records(),
      ElementsAre(logLine(5, "starting execution of plugin: network\n"), kActivating, kStarting,
                  logLine(2, "unhandled exception whilst processing network: broken\n"),
                  logLine(5, "completed execution of plugin: network (took " + took + " us)\n"),
                  kernelLine("Bootforge plugin network activation failed: broken")));
}

// The wall clock before, within and after it.
TEST_F(Activation, StampsItsBeginningAndItsEnd) {
  const auto microseconds = [](const timeval& time) {
    return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec;
  };
  const auto now = [&microseconds] {
    timeval time{};
    gettimeofday(&time, nullptr);
    return microseconds(time);
  };
  for (const bool fails : {false, true}) {
    TestPlugin plugin("network");
    EXPECT_EQ(microseconds(plugin.activationStart()), 0);
    EXPECT_EQ(microseconds(plugin.activationEnd()), 0);
    const std::int64_t before = now();
    std::int64_t within = 0;
    plugin.onStart = [&] {
      EXPECT_EQ(microseconds(plugin.activationEnd()), 0);
      within = now();
      while (now() < within + 2) {
      }
      if (fails) throw 42;
    };
    activate(plugin);
    EXPECT_LE(before, microseconds(plugin.activationStart()));
    EXPECT_LE(microseconds(plugin.activationStart()), within);
    EXPECT_LE(within, microseconds(plugin.activationEnd()));
    EXPECT_LE(microseconds(plugin.activationEnd()), now());
    EXPECT_EQ(plugin.activationDuration(),
              microseconds(plugin.activationEnd()) - microseconds(plugin.activationStart()));
    EXPECT_GE(plugin.activationDuration(), 2);
  }
}

TEST_F(Activation, TakesNothingFromTheTextOfItsOptionsInABoot) {
  // A method without an invocation is the direction of daemons, and means nothing here.
  RunOptions::instance().method = "stop";
  EXPECT_THAT(recordsOfStarting({}), ElementsAre(kActivating, kStarting, kActivated));
}

TEST_F(Activation, StartsWhenAnInvocationNamesNoMethod) {
  EXPECT_THAT(recordsOfInvoking("", {}), ElementsAre(kActivating, kStarting, kActivated));
}

TEST_F(Activation, InvokesStart) {
  int calls = 0;
  EXPECT_THAT(recordsOfInvoking("start", [&calls] { ++calls; }),
              ElementsAre(kActivating, kStarting, kActivated));
  EXPECT_EQ(calls, 1);
}

TEST_F(Activation, InvokesApplyHostProfile) {
  int calls = 0;
  EXPECT_THAT(recordsOfInvoking("apply_host_profile", [&calls] { ++calls; }),
              ElementsAre(kActivating, kApplying, kActivated));
  EXPECT_EQ(calls, 1);
}

TEST_F(Activation, InvokesNothingForAnyOtherMethodAndReportsSuccess) {
  for (const char* method : {"restart", "Start", "start ", "apply-host-profile", "stop"}) {
    doubles::reset();
    int calls = 0;
    EXPECT_THAT(recordsOfInvoking(method, [&calls] { ++calls; }),
                ElementsAre(kActivating, kActivated))
        << method;
    EXPECT_EQ(calls, 0) << method;
  }
}

constexpr const char* kInvocationFailed =
    "Bootforge plugin network activation failed: Method invocation failed";

TEST_F(Activation, ReportsAnInvokedMethodThatFailed) {
  EXPECT_THAT(
      recordsOfInvoking("start", [] { throw MethodFailedException("network", "start", "m"); }),
      ElementsAre(kActivating, kStarting,
                  logLine(2, "Method invocation failed: network->start() failed: m\n"),
                  kernelLine(kInvocationFailed)));
}

TEST_F(Activation, ReportsAnyOtherStandardExceptionOfAnInvokedMethod) {
  EXPECT_THAT(
      recordsOfInvoking("apply_host_profile", [] { throw std::runtime_error("broken"); }),
      ElementsAre(kActivating, kApplying,
                  logLine(2,
                          "unable to invoke method 'apply_host_profile' on plugin 'network': "
                          "broken\n"),
                  kernelLine(kInvocationFailed)));
}

TEST_F(Activation, ReportsAnUnknownExceptionOfAnInvokedMethod) {
  EXPECT_THAT(
      recordsOfInvoking("start", [] { throw 42; }),
      ElementsAre(kActivating, kStarting,
                  logLine(2,
                          "unknown exception whilst attempting to execute method 'start' on plugin "
                          "'network'\n"),
                  kernelLine(kInvocationFailed)));
}

TEST_F(Activation, TracesAnInvocation) {
  RunOptions::instance().trace = true;
  RunOptions::instance().invoke = true;
  RunOptions::instance().method = "restart";
  TestPlugin plugin("network");
  activate(plugin);
  const std::string took = std::to_string(plugin.activationDuration());
  EXPECT_THAT(
      records(),
      ElementsAre(logLine(5, "starting execution of plugin: network\n"), kActivating,
                  logLine(5, "completed execution of plugin: network (took " + took + " us)\n"),
                  kActivated));
}

class HostProfile : public Activation {
 protected:
  /// Activates a plugin that supports the operation. True when that was called.
  bool activationApplies() {
    bool applied = false;
    bool started = false;
    TestPlugin plugin("network");
    plugin.onStart = [&started] { started = true; };
    plugin.onApplyHostProfile = [&applied] { applied = true; };
    doubles::reset();
    activate(plugin);
    EXPECT_NE(applied, started);
    EXPECT_THAT(records(), ElementsAre(kActivating, applied ? kApplying : kStarting, kActivated));
    return applied;
  }

  void makeProfileFolder() { writeFile("/etc/nimbus/other", ""); }
};

TEST_F(HostProfile, IsNotAppliedWhereThereIsNone) {
  inOwnProcess([this] {
    makeProfileFolder();
    EXPECT_FALSE(activationApplies());
  });
}

TEST_F(HostProfile, IsApplied) {
  inOwnProcess([this] {
    writeFile("/etc/nimbus/hostprofile.xml", "");
    EXPECT_TRUE(activationApplies());
  });
}

TEST_F(HostProfile, IsAppliedWhenItIsCompressed) {
  inOwnProcess([this] {
    writeFile("/etc/nimbus/hostprofile.xml.gz", "");
    EXPECT_TRUE(activationApplies());
  });
}

TEST_F(HostProfile, MayBeAnyKindOfFile) {
  inOwnProcess([this] {
    makeProfileFolder();
    ASSERT_EQ(::mkfifo("/etc/nimbus/hostprofile.xml", 0600), 0);
    EXPECT_TRUE(activationApplies());
  });
}

TEST_F(HostProfile, IsLookedForOnce) {
  inOwnProcess([this] {
    writeFile("/etc/nimbus/hostprofile.xml", "");
    EXPECT_TRUE(activationApplies());
    ASSERT_EQ(::unlink("/etc/nimbus/hostprofile.xml"), 0);
    EXPECT_TRUE(activationApplies());
  });
}

TEST_F(HostProfile, ThatComesAfterTheFirstLookIsNotSeen) {
  inOwnProcess([this] {
    EXPECT_FALSE(activationApplies());
    writeFile("/etc/nimbus/hostprofile.xml", "");
    EXPECT_FALSE(activationApplies());
  });
}

TEST_F(HostProfile, IsFirstLookedForByAPluginThatCouldApplyIt) {
  inOwnProcess([this] {
    TestPlugin plugin("other");
    activate(plugin);
    writeFile("/etc/nimbus/hostprofile.xml", "");
    EXPECT_TRUE(activationApplies());
  });
}

TEST_F(HostProfile, IsOfNoUseToAPluginThatCannotApplyIt) {
  inOwnProcess([this] {
    writeFile("/etc/nimbus/hostprofile.xml", "");
    EXPECT_THAT(recordsOfStarting({}), ElementsAre(kActivating, kStarting, kActivated));
  });
}

TEST_F(HostProfile, ThatCannotBeAppliedIsReportedLikeAFailedStart) {
  inOwnProcess([this] {
    writeFile("/etc/nimbus/hostprofile.xml", "");
    TestPlugin plugin("network");
    plugin.onApplyHostProfile = [] {
      throw MethodFailedException("network", "apply_host_profile", "m");
    };
    activate(plugin);
    const std::string text = "network->apply_host_profile() failed: m";
    EXPECT_THAT(
        records(),
        ElementsAre(kActivating, kApplying, logLine(2, "Method invocation failed: " + text + "\n"),
                    kernelLine("Bootforge plugin network activation failed: " + text)));
  });
}

}  // namespace
}  // namespace bootforge::test
