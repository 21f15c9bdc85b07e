// How the command lists of a description are run. The executor here is the test's own: it has the
// names of the real one, which is left out of this program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/hypcli_executor.h"
#include "tests/double/recorder.h"
#include "tests/unit/plugins/description.h"
#include "util/graph_lock.h"

namespace bootforge {
namespace {

std::vector<std::string> commands;
std::function<void(const std::string&)> onCommand;

}  // namespace

HypcliExecutor::HypcliExecutor() = default;

HypcliExecutor& HypcliExecutor::instance() {
  static HypcliExecutor executor;
  return executor;
}

void HypcliExecutor::runCommand(const std::string& commandLine) {
  commands.push_back(commandLine);
  if (onCommand) onCommand(commandLine);
}

namespace test {
namespace {

using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;

class JsonCommands : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    commands.clear();
    onCommand = nullptr;
  }

  /// The text of the failure of an operation.
  static std::string failureOf(const std::function<void()>& operation) {
    try {
      operation();
      return "none";
    } catch (const MethodFailedException& failure) {
      return failure.what();
    }
  }
};

TEST_F(JsonCommands, AreRunInTheirOrderAsOftenAsTheyStandThere) {
  const auto plugin = makePlugin({.start = R"(["b --x=1", "a", "b --x=1", "c"])"});
  plugin->start();
  EXPECT_THAT(commands, ElementsAre("b --x=1", "a", "b --x=1", "c"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(JsonCommands, AreHandedOnUnchanged) {
  const auto plugin =
      makePlugin({.start = R"(["", " a  b ", "\"q\" 'r' \\s \n", "\u00e4", "100%s"])"});
  plugin->start();
  EXPECT_THAT(commands, ElementsAre("", " a  b ", "\"q\" 'r' \\s \n", "\xC3\xA4", "100%s"));
}

TEST_F(JsonCommands, OfAnEmptyListSucceed) {
  const auto plugin = makePlugin({.version = "2", .moreOperations = R"("apply_host_profile":[])"});
  plugin->start();
  plugin->applyHostProfile();
  EXPECT_THAT(commands, IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(JsonCommands, OfBothOperationsAreApart) {
  const auto plugin = makePlugin({.version = "2",
                                  .start = R"(["s1", "s2"])",
                                  .moreOperations = R"("apply_host_profile":["p"])"});
  plugin->applyHostProfile();
  EXPECT_THAT(commands, ElementsAre("p"));
  plugin->start();
  EXPECT_THAT(commands, ElementsAre("p", "s1", "s2"));
}

TEST_F(JsonCommands, OfAHostProfileThatIsNotReadAreNone) {
  const auto plugin = makePlugin({.moreOperations = R"("apply_host_profile":["p"])"});
  plugin->applyHostProfile();
  EXPECT_THAT(commands, IsEmpty());
}

TEST_F(JsonCommands, MayBeRunAgain) {
  const auto plugin = makePlugin({.start = R"(["a", "b"])"});
  plugin->start();
  plugin->start();
  EXPECT_THAT(commands, ElementsAre("a", "b", "a", "b"));
}

TEST_F(JsonCommands, GoOnAfterOneThatFailed) {
  onCommand = [](const std::string& command) {
    if (command == "two") throw Exception("could not do 100%s two");
  };
  const auto plugin = makePlugin({.start = R"(["one", "two", "three"])"});
  EXPECT_EQ(failureOf([&] { plugin->start(); }),
            "network->start() failed: error while executing the cli");
  EXPECT_THAT(commands, ElementsAre("one", "two", "three"));
  EXPECT_THAT(records(), ElementsAre(logLine(2, "could not do 100%s two\n")));
}

TEST_F(JsonCommands, OfAHostProfileFailUnderItsName) {
  onCommand = [](const std::string&) { throw std::runtime_error("broken"); };
  const auto plugin =
      makePlugin({.version = "2", .moreOperations = R"("apply_host_profile":["p"])"});
  EXPECT_EQ(failureOf([&] { plugin->applyHostProfile(); }),
            "network->apply_host_profile() failed: error while executing the cli");
  EXPECT_THAT(records(), ElementsAre(logLine(2, "broken\n")));
}

TEST_F(JsonCommands, ThatAllFailAreAllTold) {
  onCommand = [](const std::string& command) { throw std::runtime_error("no " + command); };
  const auto plugin = makePlugin({.start = R"(["a", "b", "c"])"});
  EXPECT_EQ(failureOf([&] { plugin->start(); }),
            "network->start() failed: error while executing the cli");
  EXPECT_THAT(records(),
              ElementsAre(logLine(2, "no a\n"), logLine(2, "no b\n"), logLine(2, "no c\n")));
}

// It counts, and there is nothing to log.
TEST_F(JsonCommands, MayFailByWhatIsNoException) {
  onCommand = [](const std::string& command) {
    if (command == "one") throw 42;
  };
  const auto plugin = makePlugin({.start = R"(["one", "two"])"});
  EXPECT_EQ(failureOf([&] { plugin->start(); }),
            "network->start() failed: error while executing the cli");
  EXPECT_THAT(commands, ElementsAre("one", "two"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(JsonCommands, AreRunAgainAfterAFailure) {
  onCommand = [](const std::string&) { throw std::runtime_error("broken"); };
  const auto plugin = makePlugin({.start = R"(["a"])"});
  EXPECT_NE(failureOf([&] { plugin->start(); }), "none");
  onCommand = nullptr;
  EXPECT_EQ(failureOf([&] { plugin->start(); }), "none");
}

TEST_F(JsonCommands, AreThoseThatTheDescriptionHadWhenItWasRead) {
  const auto plugin = makePlugin({.start = R"(["a"])"});
  writeFile(kDescription, "damaged");
  plugin->start();
  EXPECT_THAT(commands, ElementsAre("a"));
}

}  // namespace
}  // namespace test
}  // namespace bootforge
