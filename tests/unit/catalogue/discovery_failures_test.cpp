// Files that cannot be used: each is an alert and a line in the log, and costs nobody else.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "graph/barrier_registry.h"
#include "graph/init_barrier.h"
#include "tests/unit/catalogue/discovery_fixture.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

using doubles::alert;
using doubles::logLine;
using doubles::records;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

class DiscoveryFailures : public DiscoveryTest {
 protected:
  /// Expects that the file yields nothing but this reason.
  void expectInvalid(const std::string& fileName, const std::string& reason) {
    const std::string message = "exception occurred whilst loading plugin " + fileName +
                                ": plugin `/plugins/" + fileName + "' is invalid: " + reason;
    doubles::reset();
    discover(fileName);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(records(), ElementsAre(alert(message), logLine(3, message + "\n")));
  }
};

TEST_F(DiscoveryFailures, ADescriptionThatIsNoJsonIsInvalid) {
  writeFile("/plugins/x.json", "hello");
  expectInvalid("x.json", "plugin root is not an object");
}

TEST_F(DiscoveryFailures, AnEmptyDescriptionIsInvalid) {
  writeFile("/plugins/x.json", "");
  expectInvalid("x.json", "plugin root is not an object");
}

TEST_F(DiscoveryFailures, AMissingFileIsInvalid) {
  std::filesystem::create_directories("/plugins");
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, AMissingFolderIsInvalid) {
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, ADanglingLinkIsInvalid) {
  std::filesystem::create_directories("/plugins");
  std::filesystem::create_symlink("/nowhere", "/plugins/x.json");
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, ALinkToItselfIsInvalid) {
  std::filesystem::create_directories("/plugins");
  std::filesystem::create_symlink("x.json", "/plugins/x.json");
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, AFolderIsInvalid) {
  std::filesystem::create_directories("/plugins/x.json");
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, AFifoIsInvalidAndNotWaitedFor) {
  std::filesystem::create_directories("/plugins");
  ASSERT_EQ(::mkfifo("/plugins/x.json", 0600), 0);
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, ADeviceIsInvalid) {
  std::filesystem::create_directories("/plugins");
  std::filesystem::create_symlink("/dev/zero", "/plugins/x.json");
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, ASocketIsInvalid) {
  std::filesystem::create_directories("/plugins");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/plugins/x.json");
  const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, AFileThatMayNotBeReadIsInvalid) {
  writePlugin("x.json");
  doubles::failCall("open", {.error = EACCES});  // the debug list, which is missing, is not opened
  expectInvalid("x.json", "no such file or directory");
}

TEST_F(DiscoveryFailures, ALinkToADescriptionIsAsGoodAsTheDescription) {
  writeFile("/elsewhere/net", Metadata().description());
  std::filesystem::create_directories("/plugins");
  std::filesystem::create_symlink("/elsewhere/net", "/plugins/x.json");
  discover("x.json");
  EXPECT_THAT(names(), ElementsAre("x"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryFailures, OneBadFileDoesNotHurtTheNext) {
  writeFile("/plugins/bad.json", "{}");
  writePlugin("good.json");
  discover("bad.json");
  discover("good.json");
  EXPECT_THAT(names(), ElementsAre("good"));
}

TEST_F(DiscoveryFailures, AHalfReadDescriptionLeavesNoEdges) {
  Metadata metadata;
  metadata.requires_ = R"(["half-needed"])";
  metadata.provides = R"(["half-made", 1])";
  writePlugin("x.json", metadata);
  expectInvalid("x.json", "provides tag is not a string");
  ScopedLock lock(graphLock);
  InitBarrier* const needed = catalogue.barriers.lookupBarrier("half-needed", false);
  ASSERT_NE(needed, nullptr);
  EXPECT_THAT(needed->dependents(), IsEmpty());
  EXPECT_EQ(catalogue.barriers.lookupBarrier("half-made", false), nullptr);
}

TEST_F(DiscoveryFailures, AnUnknownEscapeInTheInjectionsIsToldForEachFile) {
  writeFile(kDebugFile, "probe:rea\\dy:net:/bin/true\n");
  writePlugin("net.json");
  discover("net.json");
  discover("probe.debug");
  discover("note.txt");
  discover("README");
  const std::string prefix = "exception occurred whilst loading plugin ";
  const std::string suffix = ": unknown escape sequence";
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(),
              ElementsAre(alert(prefix + "net.json" + suffix),
                          logLine(3, prefix + "net.json" + suffix + "\n"),
                          alert(prefix + "probe.debug" + suffix),
                          logLine(3, prefix + "probe.debug" + suffix + "\n"),
                          alert(prefix + "note.txt" + suffix),
                          logLine(3, prefix + "note.txt" + suffix + "\n"),
                          logLine(3, "ignoring plugin 'README' of unspecified type...\n")));
}

TEST_F(DiscoveryFailures, AnEscapeAtTheEndOfAFieldIsTold) {
  writeFile(kDebugFile, "probe:ready\\:net:/bin/true\n");
  discover("probe.debug");
  const std::string message =
      "exception occurred whilst loading plugin probe.debug: cannot end with escape";
  EXPECT_THAT(records(), ElementsAre(alert(message), logLine(3, message + "\n")));
}

TEST_F(DiscoveryFailures, ANodeThatCannotBeMadeIsTold) {
  writePlugin("net.json");
  doubles::failCall("pthread_cond_init", {.error = ENOMEM});
  discover("net.json");
  const std::string message =
      "exception occurred whilst loading plugin net.json: Condition variable for Node could not be "
      "initialized";
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(alert(message), logLine(3, message + "\n")));
}

TEST_F(DiscoveryFailures, WhatIsNoStandardExceptionIsToldWithoutAReason) {
  writePlugin("net.json");
  options.disabledPlugins = {"net"};
  doubles::script().onLog = [](const std::string& text) {
    if (text.find("denylist") != std::string::npos) throw 42;
  };
  discover("net.json");
  const std::string message = "unknown exception occurred whilst loading plugin net.json";
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(alert(message), logLine(3, message + "\n")));
}

TEST_F(DiscoveryFailures, AnAlertThatTheHostDoesNotTakeIsALineInTheLog) {
  writeFile("/plugins/x.json", "[]");
  doubles::script().onAlert = doubles::throwsError("console on fire");
  discover("x.json");
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "unable to raise system alert: console on fire.\n"),
                          logLine(3,
                                  "exception occurred whilst loading plugin x.json: plugin "
                                  "`/plugins/x.json' is invalid: plugin root is not an object\n")));
}

TEST_F(DiscoveryFailures, AnAlertThatFailsInAnUnknownWayIsALineInTheLog) {
  writeFile("/plugins/x.json", "[]");
  doubles::script().onAlert = doubles::throwsOther();
  discover("x.json");
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "unable to raise system alert.\n"),
                          logLine(3,
                                  "exception occurred whilst loading plugin x.json: plugin "
                                  "`/plugins/x.json' is invalid: plugin root is not an object\n")));
}

TEST_F(DiscoveryFailures, AFileNameIsNeverTakenForAFormat) {
  writeFile("/plugins/%s%n.json", "[]");
  expectInvalid("%s%n.json", "plugin root is not an object");
  doubles::reset();
  discover("%s%n.%d");
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "ignoring plugin '%s%n.%d' of unknown type "
                                             "(%d)...\n")));
}

}  // namespace
}  // namespace bootforge
