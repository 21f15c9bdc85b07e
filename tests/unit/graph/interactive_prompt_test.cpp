// The operator's prompt: what it shows, what it does to the terminals, what each answer brings.
#include "graph/interactive_prompt.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include "main/run_options.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/graph/graph_builder.h"
#include "tests/unit/graph/terminal_calls.h"
#include "tests/unit/graph/test_plugin.h"
#include "util/unique_fd.h"

namespace bootforge::test {
namespace {

using doubles::failCall;
using doubles::logLine;
using doubles::records;
using doubles::Where;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPrompt =
    "current plugin: \033[36mnet\n"
    "\033[35m(c)ontinue\033[0m\t\033[32m(e)xecute\033[0m\t"
    "\033[33m(t)roubleshoot\033[0m\t\033[31m(s)kip\033[0m\033[?25l";
const std::string kShowCursor = "\033[?25h";
const std::string kEraseLine = "\033[2K";

/// The options once more, one of them in its colour.
std::string answered(const std::string& colours) {
  const std::string texts[] = {"(c)ontinue", "(e)xecute", "(t)roubleshoot", "(s)kip"};
  std::string line = "\r";
  for (std::size_t i = 0; i < 4; ++i) {
    if (i > 0) line += '\t';
    line += std::string("\033[3") + colours[i] + "m" + texts[i] + "\033[0m";
  }
  return kShowCursor + line + "\n";
}

const std::string kContinued = answered("5777");
const std::string kExecuted = answered("7277");
const std::string kTroubleshot = answered("7737");
const std::string kSkipped = answered("7771");

class InteractivePrompt : public testing::Test {
 protected:
  InteractivePrompt() {
    doubles::reset();
    doubles::resetFaults();
    terminalCalls() = {.isTerminal = true};
    RunOptions::instance() = RunOptions();
    RunOptions::instance().interactive = true;
    writeFile("/dev/console", "");
  }
  ~InteractivePrompt() override {
    doubles::resetFaults();
    std::signal(SIGCHLD, SIG_DFL);
    RunOptions::instance() = RunOptions();
  }

  /// Does something with these keys, and nothing more, on standard input. What it wrote to standard
  /// output is in shown_ afterwards.
  template <typename Action>
  auto typing(const std::string& keys, Action action) {
    const Streams streams(keys, &shown_);
    return action();
  }

  PromptAnswer answer(const std::string& keys, const std::string& plugin = "net") {
    return typing(keys, [&] { return promptFor(plugin); });
  }

  std::string shown_;

 private:
  /// Takes the place of standard input and output for a while.
  class Streams {
   public:
    Streams(const std::string& keys, std::string* shown) : shown_(shown) {
      std::fflush(stdout);
      int ends[2];
      EXPECT_EQ(::pipe(ends), 0);
      EXPECT_EQ(::write(ends[1], keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
      ::close(ends[1]);
      ::dup2(ends[0], STDIN_FILENO);
      ::close(ends[0]);
      ::dup2(output_.get(), STDOUT_FILENO);
    }
    ~Streams() {
      ::dup2(input_.get(), STDIN_FILENO);
      ::dup2(oldOutput_.get(), STDOUT_FILENO);
      char buffer[4096];
      const ssize_t count = ::pread(output_.get(), buffer, sizeof buffer, 0);
      shown_->assign(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

   private:
    const UniqueFd input_{::dup(STDIN_FILENO)};
    const UniqueFd oldOutput_{::dup(STDOUT_FILENO)};
    const UniqueFd output_{::memfd_create("output", MFD_CLOEXEC)};
    std::string* const shown_;
  };
};

TEST_F(InteractivePrompt, ExecuteActivatesThePluginAndAsksAgainAboutTheNext) {
  EXPECT_EQ(answer("e"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kExecuted);
  EXPECT_TRUE(RunOptions::instance().interactive);
  EXPECT_THAT(terminalCalls().requests, ElementsAre("activate 1"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(InteractivePrompt, ContinueAsksNoMoreAndGoesToTheTerminalOfTheBoot) {
  EXPECT_EQ(answer("c"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kContinued);
  EXPECT_FALSE(RunOptions::instance().interactive);
  EXPECT_THAT(terminalCalls().requests, ElementsAre("activate 1", "activate 11"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(InteractivePrompt, SkipIsToldAndLeavesThePluginAlone) {
  EXPECT_EQ(answer("s"), PromptAnswer::Skip);
  EXPECT_EQ(shown_, kPrompt + kSkipped);
  EXPECT_TRUE(RunOptions::instance().interactive);
  EXPECT_THAT(terminalCalls().requests, ElementsAre("activate 1"));
  EXPECT_THAT(records(),
              ElementsAre(logLine(5, "skipping plugin net (interactive mode request)\n")));
}

TEST_F(InteractivePrompt, OtherKeysArePassedOverAndCapitalsAreLetters) {
  EXPECT_EQ(answer(std::string("x7 \n\0\xff", 6) + "Cs"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kContinued);
  EXPECT_EQ(answer("\033ABDS"), PromptAnswer::Skip);
  EXPECT_EQ(answer("E"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kExecuted);
}

TEST_F(InteractivePrompt, AReadThatFailsIsRepeated) {
  failCall("read", {.error = EIO, .times = 2});
  EXPECT_EQ(answer("s"), PromptAnswer::Skip);
}

// --- the terminals

TEST_F(InteractivePrompt, IsWaitedForByANonBlockingConsoleThatIsFull) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd readEnd(ends[0]);
  std::string shown;
  std::size_t stuffing = 0;
  typing("e", [&] {
    UniqueFd writeEnd(ends[1]);
    ::fcntl(writeEnd.get(), F_SETFL, O_NONBLOCK);
    ::dup2(writeEnd.get(), STDOUT_FILENO);
    while (::write(writeEnd.get(), "x", 1) == 1) ++stuffing;
    EXPECT_EQ(errno, EAGAIN);
    std::thread reader([&] {
      char chunk[4096];
      for (ssize_t count; (count = ::read(readEnd.get(), chunk, sizeof chunk)) > 0;) {
        shown.append(chunk, static_cast<std::size_t>(count));
      }
    });
    EXPECT_EQ(promptFor("net"), PromptAnswer::Activate);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    writeEnd.reset();  // the reader is at the end now
    reader.join();
  });
  EXPECT_EQ(shown.substr(stuffing), kPrompt + kExecuted);
}

TEST_F(InteractivePrompt, ATerminalThatCannotBeActivatedIsWaitedFor) {
  terminalCalls().activates = false;
  EXPECT_EQ(answer("c"), PromptAnswer::Activate);
  EXPECT_THAT(terminalCalls().requests,
              ElementsAre("activate 1", "wait 1", "activate 11", "wait 11"));
}

TEST_F(InteractivePrompt, WithoutAConsoleItIsShownAllTheSame) {
  ASSERT_EQ(::unlink("/dev/console"), 0);
  EXPECT_EQ(answer("c"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kContinued);
  EXPECT_THAT(terminalCalls().requests, IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(InteractivePrompt, KeysAreReadUnseenAndOneByOne) {
  std::vector<std::string> before;
  doubles::afterCall("read", [&before] { before = terminalCalls().changes; });
  answer("xe");
  EXPECT_THAT(before, ElementsAre("keys"));
  EXPECT_THAT(terminalCalls().changes, ElementsAre("keys", "lines"));
}

TEST_F(InteractivePrompt, WhatIsNoTerminalIsReadAllTheSame) {
  terminalCalls().isTerminal = false;
  EXPECT_EQ(answer("e"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kExecuted);
  EXPECT_THAT(records(), ElementsAre(logLine(2, "unable to get terminal io state.\n"),
                                     logLine(2, "unable to restore terminal io state.\n")));
}

TEST_F(InteractivePrompt, ATerminalThatCannotBeChangedIsReadAllTheSame) {
  terminalCalls().failingChange = 1;
  EXPECT_EQ(answer("e"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kExecuted);
  EXPECT_THAT(records(), ElementsAre(logLine(2, "unable to set terminal io state.\n")));
}

TEST_F(InteractivePrompt, ATerminalThatCannotBeRestoredIsTold) {
  terminalCalls().failingChange = 2;
  EXPECT_EQ(answer("e"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kExecuted);
  EXPECT_THAT(records(), ElementsAre(logLine(2, "unable to restore terminal io state.\n")));
}

// --- the plugins that have to run first

TEST_F(InteractivePrompt, WaitsUntilAllListedPluginsHaveRun) {
  auto& required = RunOptions::instance().interactiveModeRequires;
  required = {"a", "b", "a"};
  EXPECT_EQ(answer("s", "net"), PromptAnswer::Activate);
  EXPECT_THAT(required, ElementsAre("a", "b", "a"));
  EXPECT_EQ(answer("s", "a"), PromptAnswer::Activate);
  EXPECT_THAT(required, ElementsAre("b"));
  EXPECT_THAT(terminalCalls().requests, IsEmpty());
  EXPECT_EQ(answer("s", "b"), PromptAnswer::Activate);
  EXPECT_THAT(required, IsEmpty());
  EXPECT_THAT(terminalCalls().requests, ElementsAre("activate 1")) << "for the prompts to come";
  EXPECT_EQ(shown_, "");
  EXPECT_THAT(terminalCalls().changes, IsEmpty());
  EXPECT_EQ(answer("s", "net"), PromptAnswer::Skip);
  EXPECT_EQ(shown_, kPrompt + kSkipped);
}

// --- the troubleshooting shell

TEST_F(InteractivePrompt, TheShellHasNoSignalBlockedOrIgnored) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  const auto hangUp = std::signal(SIGHUP, SIG_IGN);
  answer(
      "tfor n in 1 2 10 12 13 14 15; do "
      "sh -c \"kill -$n \\$\\$; exit 0\" 2>/dev/null; [ $? = 0 ] && echo $n; done > "
      "/tmp/deaf\nexit\n");
  std::signal(SIGHUP, hangUp);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(readFile("/tmp/deaf"), "");
}

TEST_F(InteractivePrompt, AShellIsRunToItsEndBeforeThePluginIsActivated) {
  failCall("waitpid", {.error = EINTR, .times = 3});
  EXPECT_EQ(answer("techo $0 $# > /tmp/shell\nsleep 0.1; echo end >> /tmp/shell; exit 3\n"),
            PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kTroubleshot + kEraseLine);
  EXPECT_EQ(readFile("/tmp/shell"), "/bin/sh 0\nend\n");
  EXPECT_TRUE(RunOptions::instance().interactive);
  EXPECT_EQ(terminalCalls().changes.back(), "lines");
  EXPECT_THAT(records({doubles::Kind::kLog}), IsEmpty());
}

TEST_F(InteractivePrompt, AShellHasTheStandardStreamsAloneAndDiesOfABrokenPipeAgain) {
  ASSERT_EQ(::dup2(STDERR_FILENO, 77), 77);
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  answer(
      "tfor fd in 3 4 5 6 7 8 9 77; do if (: <&$fd) 2> /dev/null; then echo $fd; fi; done "
      "> /tmp/descriptors\n(yes; echo $? > /tmp/status) | head -n 1\n");
  std::signal(SIGPIPE, before);
  ::close(77);
  EXPECT_EQ(readFile("/tmp/descriptors"), "");
  EXPECT_EQ(readFile("/tmp/status"), std::to_string(128 + SIGPIPE) + "\n");
  EXPECT_EQ(shown_, kPrompt + kTroubleshot + "y\n" + kEraseLine);
}

TEST_F(InteractivePrompt, AShellThatCannotBeForkedIsTold) {
  failCall("fork", {.error = EAGAIN});
  EXPECT_EQ(answer("t"), PromptAnswer::Activate);
  EXPECT_EQ(shown_, kPrompt + kTroubleshot + kEraseLine);
  EXPECT_THAT(records(), ElementsAre(logLine(2,
                                             "failed to fork - unable to launch troubleshooting "
                                             "shell: Resource temporarily unavailable\n")));
}

volatile std::sig_atomic_t exitStatus = -1;

/// Notes the exit status of a child that ends.
void watchChild() {
  exitStatus = -1;
  struct sigaction action {};
  action.sa_sigaction = [](int, siginfo_t* information, void*) {
    if (information->si_code == CLD_EXITED) exitStatus = information->si_status;
  };
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  ::sigaction(SIGCHLD, &action, nullptr);
}

TEST_F(InteractivePrompt, AShellWithoutASessionOfItsOwnIsNotRun) {
  watchChild();
  failCall("setsid", {.error = EPERM, .where = Where::kOtherProcesses});
  EXPECT_EQ(answer("techo > /tmp/shell\n"), PromptAnswer::Activate);
  EXPECT_FALSE(exists("/tmp/shell"));
  EXPECT_EQ(exitStatus, 1);
  EXPECT_THAT(records(),
              ElementsAre(logLine(2, "unable to create new session: Operation not permitted\n")));
}

TEST_F(InteractivePrompt, AMissingShellIsTold) {
  ASSERT_EQ(::unlink("/bin/sh"), 0);
  watchChild();
  EXPECT_EQ(answer("t"), PromptAnswer::Activate);
  EXPECT_EQ(exitStatus, 1);
  EXPECT_EQ(shown_, kPrompt + kTroubleshot + kEraseLine);
  EXPECT_THAT(records({doubles::Kind::kLog}),
              ElementsAre(logLine(2, "unable to exec shell: No such file or directory\n")));
}

// --- within an activation

std::int64_t microseconds(const timeval& time) {
  return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec;
}

std::int64_t now() {
  timeval time{};
  gettimeofday(&time, nullptr);
  return microseconds(time);
}

void activate(Plugin& plugin) {
  Executor executor(0, false);
  plugin.run(executor);
}

TEST_F(InteractivePrompt, TheTimeThatItTakesIsThePluginsOwn) {
  TestPlugin plugin("net");
  std::int64_t answerTime = 0;
  doubles::afterCall("read", [&answerTime] {
    const std::int64_t before = now();
    while ((answerTime = now()) < before + 2) {
    }
  });
  typing("e", [&plugin] { activate(plugin); });
  EXPECT_LT(microseconds(plugin.activationStart()), answerTime);
  EXPECT_LE(answerTime, microseconds(plugin.activationEnd()));
}

TEST_F(InteractivePrompt, ComesBeforeAnythingElseOfAnActivation) {
  RunOptions::instance().trace = true;
  TestPlugin plugin("net");
  doubles::afterCall("read", [] { EXPECT_THAT(records(), IsEmpty()); });
  typing("e", [&plugin] { activate(plugin); });
  ASSERT_GE(records().size(), 2U);
  EXPECT_EQ(records()[0], logLine(5, "starting execution of plugin: net\n"));
  EXPECT_EQ(records()[1], doubles::kernelLine("Activating Bootforge plugin net."));
}

TEST_F(InteractivePrompt, OfASkippedPluginNothingMoreIsHeardAndItsDependentsRun) {
  RunOptions::instance().trace = true;
  TestPlugin skipped("net");
  TestPlugin dependent("web");
  dependent.addPrerequisite(skipped);
  bool started = false;
  skipped.onStart = [&started] { started = true; };
  typing("sc", [&dependent] {
    Executor executor(0, false);
    dependent.scheduleForward(executor);
    drain(executor);
  });
  EXPECT_FALSE(started);
  EXPECT_NE(microseconds(skipped.activationStart()), 0);
  EXPECT_EQ(microseconds(skipped.activationEnd()), 0);
  ASSERT_GE(records().size(), 2U);
  EXPECT_EQ(records()[0], logLine(5, "skipping plugin net (interactive mode request)\n"));
  EXPECT_EQ(records()[1], logLine(5, "starting execution of plugin: web\n"));
  EXPECT_EQ(records().back(), doubles::kernelLine("Bootforge plugin web activated."));
}

}  // namespace
}  // namespace bootforge::test
