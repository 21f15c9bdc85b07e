// JSON plugins with the real executor process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/hypcli_executor.h"
#include "graph/executor.h"
#include "graph/graph.h"
#include "main/run_options.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "tests/unit/cli/executor_fixture.h"
#include "tests/unit/plugins/description.h"

namespace bootforge::test {
namespace {

using doubles::cli;
using doubles::kernelLine;
using doubles::logLine;
using doubles::Record;
using doubles::script;
using testing::ElementsAre;

class JsonExecutor : public ExecutorTest {
 protected:
  static std::vector<Record> executedCommands() {
    std::vector<Record> commands;
    for (const Record& record : doubles::records({doubles::Kind::kCli})) {
      if (record.text.starts_with("ExecuteCommand")) commands.push_back(record);
    }
    return commands;
  }
};

TEST_F(JsonExecutor, RunsTheCommandsOfAPlugin) {
  startExecutor();
  const auto plugin =
      makePlugin({.start = R"(["network ip set --interface=eth0", "network up --wait"])"});
  plugin->start();
  const auto commands = executedCommands();
  ASSERT_EQ(commands.size(), 2U);
  EXPECT_TRUE(commands[0].text.ends_with(": network ip set --interface=eth0")) << commands[0];
  EXPECT_TRUE(commands[1].text.ends_with(": network up --wait=true")) << commands[1];
}

TEST_F(JsonExecutor, RunsTheThirdCommandAlthoughTheSecondFailed) {
  script().commands["two"] = doubles::failsWith({"two is broken"});
  startExecutor();
  const auto plugin = makePlugin({.start = R"(["one", "two", "three"])"});
  Executor executor(1, false);
  Graph({plugin.get()}).runForward(executor);
  const auto commands = executedCommands();
  ASSERT_EQ(commands.size(), 3U);
  EXPECT_TRUE(commands[2].text.ends_with(": three")) << commands[2];
  const std::string failure = "network->start() failed: error while executing the cli";
  const auto records = doubles::records({doubles::Kind::kLog, doubles::Kind::kKernel});
  EXPECT_THAT(records, testing::IsSupersetOf(
                           {logLine(2, "Executor failed executing hypcli command: two\n"),
                            logLine(2, "Method invocation failed: " + failure + "\n"),
                            kernelLine("Bootforge plugin network activation failed: " + failure)}));
}

// An empty line is a command that fails, and the next one is run.
TEST_F(JsonExecutor, RunsWhatComesAfterAnEmptyCommand) {
  startExecutor();
  const auto plugin = makePlugin({.start = R"(["", "two"])"});
  EXPECT_EQ(exceptionOf([&] { plugin->start(); }),
            "network->start() failed: error while executing the cli");
  EXPECT_EQ(executedCommands().size(), 1U);
  EXPECT_TRUE(doubles::waitForRecord(logLine(2, "Executor failed executing hypcli command: \n")));
}

}  // namespace
}  // namespace bootforge::test
