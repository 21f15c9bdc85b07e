// Invoke mode.
#include <filesystem>

#include "tests/unit/catalogue/gzip.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::cli;
using doubles::configStore;
using doubles::kernelLine;
using doubles::logLine;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class Invoke : public ProgramTest {
 protected:
  static void writePlugin(const std::string& file, const std::string& text) {
    writeFile(kPlugins + file, text);
  }

  static int invoke(const std::string& plugins, const std::string& method = "start") {
    doubles::reset();
    return bootforge({"--invoke", "--method=" + method, "--plugin=" + plugins}).status;
  }
};

const doubles::Record kUpgrade = cli("ExecuteCommand bootforge: net upgrade");

TEST_F(Invoke, ARunOncePluginIsRunOnceOverTwoInvocations) {
  writePlugin("net.json", runOnceDescription("1.2", R"(["net upgrade"])"));
  EXPECT_EQ(invoke("net.json"), 0);
  EXPECT_THAT(events(), Contains(kUpgrade).Times(1));
  EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=net1.2,\n");

  EXPECT_EQ(invoke("net.json"), 0);
  EXPECT_THAT(events(),
              AllOf(Contains(logLine(5,
                                     "ignoring plugin 'net' because version '1.2'  has already "
                                     "been run.\n")),
                    Not(Contains(kUpgrade)),
                    Not(Contains(kernelLine("Activating Bootforge plugin net.")))));
  EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=net1.2,\n");
}

TEST_F(Invoke, AVersionWithABlankRunsEachTime) {
  writePlugin("net.json", runOnceDescription("1 2", R"(["net upgrade"])"));
  for (int run = 0; run < 2; ++run) {
    EXPECT_EQ(invoke("net.json"), 0);
    EXPECT_THAT(events(), Contains(kUpgrade).Times(1));
    EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=net12,\n");
  }
}

TEST_F(Invoke, TheRecordIsMergedWithTheKeysOfTheCommandLine) {
  writeFile(kRecord, gzipped("bootforge.run-once=old1,\n"));
  writePlugin("net.json", runOnceDescription("1.2", "[]"));
  EXPECT_EQ(
      bootforge({"--invoke", "--method=start", "--plugin=net.json", "--run-once=mine"}).status, 0);
  EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=mine,net1.2,old1,\n");
}

TEST_F(Invoke, ADamagedRecordCountsAsNone) {
  std::string record = gzipped("bootforge.run-once=net1.2,\n");
  record.resize(record.size() - 5);
  writeFile(kRecord, record);
  writePlugin("net.json", runOnceDescription("1.2", R"(["net upgrade"])"));
  EXPECT_EQ(invoke("net.json"), 0);
  EXPECT_THAT(events(), Contains(kUpgrade));
  EXPECT_EQ(gunzipped(readFile(kRecord)), "bootforge.run-once=net1.2,\n");
}

TEST_F(Invoke, ThereIsNoProfileAndTheBootStateIsCleanedAllTheSame) {
  writePlugin("net.json", description("[]", "[]", "[]"));
  EXPECT_EQ(invoke("net.json"), 0);
  EXPECT_FALSE(exists(kProfile));
  EXPECT_THAT(events(), ElementsAre(logLine(5, "Launching Executor\n"),
                                    logLine(5, "Setting up Executor - Reset Requested\n"),
                                    doubles::progress("ProgressText Activating Bootforge Plugins"),
                                    doubles::progress("StatusText "),
                                    kernelLine("Activating Bootforge plugin net."),
                                    logLine(5, "executing start plugin: net\n"),
                                    kernelLine("Bootforge plugin net activated."),
                                    logLine(5, "Bootforge executor signalled to stop\n"),
                                    logLine(5, "Executor has been Successfully Stopped\n"),
                                    configStore("EndAutoConf"), configStore("CleanupBootState")));
}

TEST_F(Invoke, OnlyTheNamedPluginsAreLoaded) {
  writePlugin("net.json", description("[]", "[]", R"(["net up"])"));
  writePlugin("web.json", description("[]", "[]", R"(["web up"])"));
  EXPECT_EQ(invoke("web.json"), 0);
  EXPECT_THAT(doubles::records({doubles::Kind::kKernel}),
              ElementsAre(kernelLine("Activating Bootforge plugin web."),
                          kernelLine("Bootforge plugin web activated.")));
}

TEST_F(Invoke, TheProfileMethodIsCalledWithoutAHostProfile) {
  writePlugin("net.json",
              R"({"metadata": {"version": 2, "requires": [], "provides": []},
                  "operations": {"start": ["net start"], "apply_host_profile": ["net profile"]}})");
  EXPECT_EQ(invoke("net.json", "apply_host_profile"), 0);
  EXPECT_THAT(events(), AllOf(Contains(logLine(5, "executing host profile plugin: net\n")),
                              Contains(cli("ExecuteCommand bootforge: net profile")),
                              Not(Contains(cli("ExecuteCommand bootforge: net start")))));
}

TEST_F(Invoke, AnUnknownMethodCallsNothingAndSucceeds) {
  writePlugin("net.json", description("[]", "[]", R"(["net up"])"));
  EXPECT_EQ(invoke("net.json", "restart"), 0);
  EXPECT_THAT(doubles::records({doubles::Kind::kKernel}),
              ElementsAre(kernelLine("Activating Bootforge plugin net."),
                          kernelLine("Bootforge plugin net activated.")));
  EXPECT_THAT(events(), Not(Contains(cli("ExecuteCommand bootforge: net up"))));
}

TEST_F(Invoke, AFailingMethodIsToldAndTheRunSucceeds) {
  writePlugin("net.json", description("[]", "[]", R"(["net up"])"));
  doubles::reset();
  doubles::script().commands["net up"] = doubles::failsWith({"no net"});
  EXPECT_EQ(bootforge({"--invoke", "--method=start", "--plugin=net.json"}).status, 0);
  EXPECT_THAT(events(),
              AllOf(Contains(logLine(2,
                                     "Method invocation failed: net->start() failed: error "
                                     "while executing the cli\n")),
                    Contains(kernelLine("Bootforge plugin net activation failed: Method invocation "
                                        "failed"))));
}

TEST_F(Invoke, AMissingMilestoneIsNoAlert) {
  writePlugin("net.json", description(R"(["nobody"])", "[]", "[]"));
  EXPECT_EQ(invoke("net.json"), 0);
  EXPECT_THAT(doubles::records({doubles::Kind::kAlert}), testing::IsEmpty());
  EXPECT_THAT(events(),
              Contains(logLine(3,
                               "Bootforge dependency error: Initialization barrier \"nobody\" is "
                               "not provided by any plugin but the following plugins require "
                               "it: \"net\"\n")));
}

TEST_F(Invoke, WithoutInvokeAMethodIsNotHandedDown) {
  writePlugin("net.json", description("[]", "[]", R"(["net up"])"));
  EXPECT_EQ(bootforge({"--method=restart", "--plugin=net.json"}).status, 0);
  EXPECT_THAT(events(), Contains(cli("ExecuteCommand bootforge: net up")));
}

}  // namespace
}  // namespace bootforge::test
