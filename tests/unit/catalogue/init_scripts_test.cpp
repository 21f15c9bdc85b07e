// The list of init scripts.
#include "catalogue/init_scripts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <utility>

#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/support/scratch_root.h"
#include "util/exception.h"

namespace bootforge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class InitScriptList : public testing::Test {
 protected:
  InitScriptList() {
    doubles::reset();
    doubles::resetFaults();
  }
  ~InitScriptList() override {
    doubles::resetFaults();
    EXPECT_THAT(doubles::records(), IsEmpty());
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "the tool was not waited for";
    EXPECT_EQ(errno, ECHILD);
  }

  /// Installs a tool that prints this list; it wants to be called with "-p" alone.
  static void install(const std::string& list, int status = 0) {
    test::writeFile("/tmp/list", list);
    test::writeFile("/bin/chkconfig",
                    "#!/bin/sh\n[ \"$*\" = -p ] || exit 1\ncat /tmp/list\nexit " +
                        std::to_string(status) + "\n",
                    0755);
  }

  static InitScripts listed(const std::string& list) {
    install(list);
    return enumerateInitScripts();
  }

  static std::string failure() {
    try {
      enumerateInitScripts();
    } catch (const Exception& error) {
      return error.what();
    }
    ADD_FAILURE() << "no Exception was thrown";
    return "";
  }
};

TEST_F(InitScriptList, LowerPrioritiesComeFirstWhateverTheOrderOfTheList) {
  EXPECT_THAT(
      listed("/etc/init.d/c 30\n/etc/init.d/a 10\n/etc/init.d/b 20\n"),
      ElementsAre(Pair(10, "/etc/init.d/a"), Pair(20, "/etc/init.d/b"), Pair(30, "/etc/init.d/c")));
}

TEST_F(InitScriptList, EqualPrioritiesKeepTheOrderOfTheList) {
  EXPECT_THAT(listed("/etc/init.d/z 5\n/etc/init.d/m 1\n/etc/init.d/a 5\n/etc/init.d/k 5\n"),
              ElementsAre(Pair(1, "/etc/init.d/m"), Pair(5, "/etc/init.d/z"),
                          Pair(5, "/etc/init.d/a"), Pair(5, "/etc/init.d/k")));
}

TEST_F(InitScriptList, NegativePrioritiesComeBeforeZero) {
  EXPECT_THAT(listed("/a 0\n/b -5\n/c 1\n/d -10\n"),
              ElementsAre(Pair(-10, "/d"), Pair(-5, "/b"), Pair(0, "/a"), Pair(1, "/c")));
}

TEST_F(InitScriptList, ALineWithAPathOnlyHasPriorityZero) {
  EXPECT_THAT(listed("/a 7\n/b\n/c 8\n"), ElementsAre(Pair(0, "/b"), Pair(7, "/a"), Pair(8, "/c")));
}

TEST_F(InitScriptList, ANumberThatCannotBeReadIsZero) {
  EXPECT_THAT(listed("/a seven\n/b -\n/c 0x10\n"),
              ElementsAre(Pair(0, "/a"), Pair(0, "/b"), Pair(0, "/c")));
}

TEST_F(InitScriptList, FieldsAreSeparatedByAnyWhiteSpaceAndTheRestIsIgnored) {
  EXPECT_THAT(listed("  /a \t 7  on off\n\t/b\v8x\n"), ElementsAre(Pair(7, "/a"), Pair(8, "/b")));
}

TEST_F(InitScriptList, BlankLinesAreSkipped) {
  EXPECT_THAT(listed("\n/a 7\n  \t\n\n/b 8\n\n"), ElementsAre(Pair(7, "/a"), Pair(8, "/b")));
}

TEST_F(InitScriptList, ALastLineWithoutItsEndIsRead) {
  EXPECT_THAT(listed("/a 7\n/b 8"), ElementsAre(Pair(7, "/a"), Pair(8, "/b")));
}

TEST_F(InitScriptList, AnEmptyListHasNoScripts) { EXPECT_THAT(listed(""), IsEmpty()); }

TEST_F(InitScriptList, AScriptListedTwiceIsThereTwice) {
  EXPECT_THAT(listed("/a 7\n/a 7\n"), ElementsAre(Pair(7, "/a"), Pair(7, "/a")));
}

TEST_F(InitScriptList, ALongListIsReadWhole) {
  std::string list;
  for (int i = 0; i < 20000; ++i) list += "/etc/init.d/service" + std::to_string(i) + " 5\n";
  EXPECT_EQ(listed(list).size(), 20000U);
}

TEST_F(InitScriptList, WhatAFailingToolHasPrintedCounts) {
  install("/a 7\n", 3);
  EXPECT_THAT(enumerateInitScripts(), ElementsAre(Pair(7, "/a")));
}

TEST_F(InitScriptList, WithoutTheToolThereAreNoScripts) {
  EXPECT_THAT(enumerateInitScripts(), IsEmpty());
}

TEST_F(InitScriptList, AToolThatCannotBeStartedGivesNoScriptsAndIsTold) {
  install("/a 7\n");
  doubles::failCall("pipe", {EMFILE});
  EXPECT_THAT(enumerateInitScripts(), IsEmpty());
  doubles::failCall("posix_spawn", {EAGAIN});
  EXPECT_THAT(enumerateInitScripts(), IsEmpty());
  EXPECT_THAT(
      doubles::records(),
      ElementsAre(doubles::logLine(3, "unable to run /bin/chkconfig -p: Too many open files.\n"),
                  doubles::logLine(3,
                                   "unable to run /bin/chkconfig -p: Resource temporarily "
                                   "unavailable.\n")));
  doubles::reset();
}

TEST_F(InitScriptList, APipeInThePlaceOfStandardInputIsClosedAndNotRead) {
  install("/a 7\n");
  const int saved = ::dup(STDIN_FILENO);
  ASSERT_GT(saved, 0);
  ::close(STDIN_FILENO);
  EXPECT_THAT(enumerateInitScripts(), IsEmpty());
  EXPECT_EQ(::dup2(saved, STDIN_FILENO), STDIN_FILENO);
  ::close(saved);
}

TEST_F(InitScriptList, AReadThatFailsIsAFailure) {
  install("/a 7\n/b 8\n");
  doubles::failCall("read", {EIO});
  EXPECT_EQ(failure(), "Failed obtaining list of init.d scripts");
}

TEST_F(InitScriptList, AReadThatFailsLaterIsAFailureToo) {
  std::string list;
  for (int i = 0; i < 20000; ++i) list += "/etc/init.d/service" + std::to_string(i) + " 5\n";
  install(list);
  doubles::failCall("read", {.error = EIO, .skip = 5});
  EXPECT_EQ(failure(), "Failed obtaining list of init.d scripts");
}

TEST_F(InitScriptList, AListWithoutEndIsAFailureAndItsWriterEnds) {
  test::writeFile("/bin/chkconfig", "#!/bin/sh\nyes /etc/init.d/a 7\n", 0755);
  ::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(failure(), "Failed obtaining list of init.d scripts");
  ::signal(SIGPIPE, SIG_DFL);
}

TEST_F(InitScriptList, TheToolDiesOfABrokenPipeAgain) {
  ::signal(SIGPIPE, SIG_IGN);
  test::writeFile("/bin/chkconfig", "#!/bin/sh\nyes /etc/init.d/a 7 | head -n 1\n", 0755);
  EXPECT_THAT(enumerateInitScripts(), ElementsAre(Pair(7, "/etc/init.d/a")));
  ::signal(SIGPIPE, SIG_DFL);
}

}  // namespace
}  // namespace bootforge
