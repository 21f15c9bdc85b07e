#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/command_execution.h"
#include "cli/hypcli_dispatcher.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "tests/unit/cli/executor_fixture.h"
#include "util/exception.h"
#include "util/regular_file.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

using doubles::cli;
using doubles::Kind;
using doubles::logLine;
using doubles::records;
using doubles::script;
using testing::ElementsAre;
using testing::IsEmpty;

class Dispatcher : public testing::Test {
 protected:
  void SetUp() override { doubles::reset(); }
};

TEST_F(Dispatcher, AddsTheFourDirectoriesInTheirOrder) {
  const HypcliDispatcher dispatcher;
  EXPECT_THAT(records(),
              ElementsAre(cli("Dispatcher"), cli("AddExternalDirectory /usr/lib/nimbus/hypcli"),
                          cli("AddExternalDirectory /usr/lib/nimbus/hypcli/int"),
                          cli("AddExternalDirectory /usr/lib/nimbus/hypcli/int/ext"),
                          cli("AddExternalDirectory /usr/lib/nimbus/hypcli/ext")));
}

TEST_F(Dispatcher, ADirectoryThatCannotBeAddedCostsItselfOnly) {
  script().onAddExternalDirectory = [](const std::string& directory) {
    if (directory == "/usr/lib/nimbus/hypcli/int") throw std::runtime_error("no such directory");
  };
  const HypcliDispatcher dispatcher;
  EXPECT_THAT(
      records(),
      ElementsAre(cli("Dispatcher"), cli("AddExternalDirectory /usr/lib/nimbus/hypcli"),
                  cli("AddExternalDirectory /usr/lib/nimbus/hypcli/int"),
                  logLine(2,
                          "unable to add external directory to the hypcli dispatcher: no such "
                          "directory\n"),
                  cli("AddExternalDirectory /usr/lib/nimbus/hypcli/int/ext"),
                  cli("AddExternalDirectory /usr/lib/nimbus/hypcli/ext")));
}

TEST_F(Dispatcher, IsBuiltEvenWhenNoDirectoryCanBeAdded) {
  script().onAddExternalDirectory = doubles::throwsError("denied");
  const HypcliDispatcher dispatcher;
  EXPECT_EQ(logRecords(),
            std::vector(4, logLine(2,
                                   "unable to add external directory to the hypcli dispatcher: "
                                   "denied\n")));
}

TEST_F(Dispatcher, WhatIsNoStandardExceptionLeavesTheConstructor) {
  script().onAddExternalDirectory = doubles::throwsOther();
  EXPECT_THROW(HypcliDispatcher(), int);
  EXPECT_THAT(logRecords(), IsEmpty());
}

/// Runs one command line after another as an executor process does, but without its socket, and
/// returns how the last one ended. In a child: the dispatcher lives as long as its process.
std::string execute(const std::vector<std::string>& lines) {
  int ends[2];
  EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) {
    std::string end = "success";
    try {
      for (const std::string& line : lines) executeCommandText(line);
    } catch (const Exception& failure) {
      end = failure.what();
    } catch (const std::exception& failure) {
      end = std::string("std::exception ") + failure.what();
    } catch (...) {
      end = "something else";
    }
    ::_exit(::write(writer.get(), end.data(), end.size()) == -1 ? 1 : 0);
  }
  writer.reset();
  const std::string end = readAll(reader).value_or("unreadable");
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  return end;
}

class CommandExecution : public Dispatcher {
 protected:
  /// What was recorded, but for the making of the dispatcher.
  static std::vector<doubles::Record> executionRecords() {
    std::vector<doubles::Record> all = records();
    std::erase_if(all, [](const doubles::Record& record) {
      return record.kind == Kind::kCli && record.text.find("ExecuteCommand") != 0;
    });
    return all;
  }
};

TEST_F(CommandExecution, HandsPathAndParametersToTheDispatcherInTheirOrder) {
  EXPECT_EQ(execute({"network ip set --interface=eth0 --address=10.0.0.1 --up"}), "success");
  EXPECT_THAT(executionRecords(),
              ElementsAre(cli("ExecuteCommand bootforge: network ip set "
                              "--interface=eth0 --address=10.0.0.1 --up=true")));
}

TEST_F(CommandExecution, ManyCommandsUseOneDispatcher) {
  EXPECT_EQ(execute({"a", "b", "c"}), "success");
  const auto all = records();
  EXPECT_EQ(std::count(all.begin(), all.end(), cli("Dispatcher")), 1);
  EXPECT_THAT(executionRecords(),
              ElementsAre(cli("ExecuteCommand bootforge: a"), cli("ExecuteCommand bootforge: b"),
                          cli("ExecuteCommand bootforge: c")));
}

TEST_F(CommandExecution, EachParseErrorIsLoggedBeforeTheFailure) {
  script().parses["bad 'line"] = {.succeeds = false, .errors = {"no quote", "no sense"}};
  EXPECT_EQ(execute({"bad 'line"}), "Executor failed to parse command bad 'line");
  EXPECT_THAT(executionRecords(),
              ElementsAre(logLine(2, "Executor was unable to parse command: no quote\n"),
                          logLine(2, "Executor was unable to parse command: no sense\n")));
}

TEST_F(CommandExecution, ALineThatIsRejectedWithoutAnErrorIsExecuted) {
  script().parses["odd"] = {
      .succeeds = false, .path = {"still", "run"}, .parameters = {{"name", "value"}}};
  EXPECT_EQ(execute({"odd"}), "success");
  EXPECT_THAT(executionRecords(),
              ElementsAre(cli("ExecuteCommand bootforge: still run --name=value")));
}

TEST_F(CommandExecution, ErrorsOfALineThatIsAcceptedAreNotLookedAt) {
  script().parses["fine"] = {.succeeds = true, .errors = {"a mere remark"}, .path = {"fine"}};
  EXPECT_EQ(execute({"fine"}), "success");
  EXPECT_THAT(logRecords(), IsEmpty());
}

TEST_F(CommandExecution, EachErrorOfACommandIsLoggedWithTheWholeText) {
  script().commands["disk mount"] = doubles::failsWith({"no disk", "exited with code 3", "x"});
  EXPECT_EQ(execute({"disk mount --on=/mnt"}),
            "Executor failed to execute command: disk mount --on=/mnt");
  EXPECT_THAT(
      executionRecords(),
      ElementsAre(cli("ExecuteCommand bootforge: disk mount --on=/mnt"),
                  logLine(2, "execution of 'disk mount --on=/mnt' failed : no disk\n"),
                  logLine(2, "execution of 'disk mount --on=/mnt' failed : exited with code 3\n"),
                  logLine(2, "execution of 'disk mount --on=/mnt' failed : x\n")));
}

TEST_F(CommandExecution, PercentSignsAreTextEverywhere) {
  script().parses["%s %n"] = {.succeeds = false, .errors = {"%d%n"}};
  EXPECT_EQ(execute({"%s %n"}), "Executor failed to parse command %s %n");
  EXPECT_THAT(executionRecords(),
              ElementsAre(logLine(2, "Executor was unable to parse command: %d%n\n")));
}

TEST_F(CommandExecution, WhatTheFrameworkThrowsPassesThrough) {
  script().commands["a"] = doubles::commandThrowsError("broken");
  script().commands["b"] = doubles::commandThrowsOther();
  EXPECT_EQ(execute({"a"}), "std::exception broken");
  EXPECT_EQ(execute({"b"}), "something else");
  EXPECT_THAT(logRecords(), IsEmpty());
}

}  // namespace
}  // namespace bootforge
