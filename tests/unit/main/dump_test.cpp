// The dependency tree instead of a run.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <sstream>
#include <string_view>

#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::configStore;
using doubles::logLine;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr std::string_view kLabel = " [label=\"";
constexpr std::string_view kArrow = " -> ";

/// The lines of a dump with each node's address replaced by its name.
std::vector<std::string> named(const std::string& dump) {
  std::map<std::string, std::string> names;
  std::vector<std::string> lines;
  std::istringstream text(dump);
  for (std::string line; std::getline(text, line); lines.push_back(line)) {
    const std::size_t label = line.find(kLabel);
    if (label == std::string::npos) continue;
    const std::size_t name = label + kLabel.size();
    const std::size_t quote = line.find('"', name);
    const std::size_t end = line.find("];", quote);
    EXPECT_EQ(end + 2, line.size()) << line;
    names[line.substr(0, label)] = line.substr(name, quote - name);
    line = line.substr(name, quote - name) + " [" + line.substr(quote + 1, end - quote - 1) + "]";
  }
  for (std::string& line : lines) {
    const std::size_t arrow = line.find(kArrow);
    if (arrow == std::string::npos) continue;
    EXPECT_EQ(line.back(), ';') << line;
    const std::size_t target = arrow + kArrow.size();
    line = names.at(line.substr(0, arrow)) + " -> " +
           names.at(line.substr(target, line.size() - 1 - target));
  }
  return lines;
}

class Dump : public ProgramTest {
 protected:
  Dump() {
    writeFile(kPlugins + std::string("net.json"),
              description(R"(["disk"])", R"(["up"])", R"(["net up"])"));
    writeFile(kPlugins + std::string("web.json"),
              description(R"(["up", "nobody"])", "[]", R"(["web up"])"));
    writeFile("/etc/nimbus/bootforge/debug.conf", "probe:disk:zero:true > /tmp/ran\n");
  }

  /// The dump of net, web and the barriers that they name.
  static void expectGraph(const std::string& dump) {
    EXPECT_THAT(named(dump), ElementsAre("digraph g {", "net []", "net -> up", "web []",
                                         "disk [ shape=box]", "disk -> net", "nobody [ shape=box]",
                                         "nobody -> web", "up [ shape=box]", "up -> web", "}"));
    EXPECT_EQ(dump.back(), '\n');
  }

  static void expectNothingRan() {
    EXPECT_THAT(doubles::records({doubles::Kind::kKernel, doubles::Kind::kCli,
                                  doubles::Kind::kProgress, doubles::Kind::kAlert}),
                testing::IsEmpty());
    EXPECT_FALSE(exists(kRecord));
    EXPECT_FALSE(exists("/tmp/ran"));
  }

  static void expectClosed() {
    EXPECT_THAT(events(), Contains(configStore("EndAutoConf")));
    EXPECT_EQ(events().back(), configStore("CleanupBootState"));
    EXPECT_TRUE(exists(kProfile));
  }
};

constexpr const char* kBoth = "--plugin=net.json,web.json";

// Nobody but us writes what we make, and an umask that is stricter counts.
TEST_F(Dump, AnInheritedUmaskCountsOnTopOfOurs) {
  const std::pair<mode_t, mode_t> modes[] = {{0, 0644}, {02, 0644}, {022, 0644}, {077, 0600}};
  for (const auto& [inherited, mode] : modes) {
    const Outcome outcome = inChild([inherited = inherited] {
      ::umask(inherited);
      return runInThisProcess({"--dump-dependency-tree=/tmp/tree"});
    });
    waitForProcesses();
    EXPECT_EQ(outcome.status, 0);
    struct stat status {};
    ASSERT_EQ(::stat("/tmp/tree", &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode) << std::oct << inherited;
    std::filesystem::remove("/tmp/tree");
  }
}

TEST_F(Dump, WithoutAPathItGoesToStandardOutput) {
  const Outcome outcome = bootforge({"--dump-dependency-tree", kBoth});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  expectGraph(outcome.out);
  expectNothingRan();
  expectClosed();
}

TEST_F(Dump, WithAPathItReplacesThatFile) {
  writeFile("/tmp/tree.dot", std::string(100'000, 'x'));
  const Outcome outcome = bootforge({"--dump-dependency-tree=/tmp/tree.dot", kBoth});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  expectGraph(readFile("/tmp/tree.dot"));
  expectNothingRan();
  expectClosed();
}

TEST_F(Dump, InjectionsOfTheWholeFolderAreNodesToo) {
  const Outcome outcome = bootforge({"--dump-dependency-tree"});
  EXPECT_EQ(outcome.status, 0);
  const std::vector<std::string> lines = named(outcome.out);
  EXPECT_THAT(lines, Contains("probe []"));
  EXPECT_THAT(lines, Contains("probe -> disk"));
  EXPECT_THAT(lines, Contains("zero -> probe"));
  expectNothingRan();
}

TEST_F(Dump, AGraphOfOnePluginHasThreeLines) {
  writeFile(kPlugins + std::string("lone.json"), description("[]", "[]", "[]"));
  const Outcome outcome = bootforge({"--dump-dependency-tree", "--plugin=lone.json"});
  EXPECT_THAT(outcome.out, testing::MatchesRegex("digraph g \\{\n"
                                                 "[0-9]+ \\[label=\"lone\"\\];\n"
                                                 "\\}\n"));
}

TEST_F(Dump, PluginsThatAreLeftOutStayTiedToTheirMilestones) {
  const Outcome outcome = inChild([] {
    return runInThisProcess({"--dump-dependency-tree", kBoth, "--disable-plugins=web"});
  });
  waitForProcesses();
  EXPECT_EQ(outcome.status, 0);
  // The node is no part of the list and has no line of its own; the edges to it have.
  std::istringstream lines(outcome.out);
  int edges = 0;
  for (std::string line; std::getline(lines, line);) {
    EXPECT_EQ(line.find("\"web\""), std::string::npos);
    edges += line.find(" -> ") != std::string::npos;
  }
  EXPECT_EQ(edges, 4);
}

TEST_F(Dump, APathThatCannotBeOpenedRunsNothingAndFails) {
  const Outcome outcome = bootforge({"--dump-dependency-tree=/nonexistent/dir/x"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_THAT(events(), Contains(logLine(2,
                                         "unable to write dependency tree "
                                         "(/nonexistent/dir/x): No such file or directory.\n")));
  EXPECT_FALSE(exists("/nonexistent"));
  expectNothingRan();
  expectClosed();
}

TEST_F(Dump, AFileOnAFullDiskFails) {
  EXPECT_EQ(bootforge({"--dump-dependency-tree=/dev/full"}).status, 1);
  EXPECT_THAT(events(), Contains(logLine(2,
                                         "unable to write dependency tree (/dev/full): No space "
                                         "left on device.\n")));
  expectNothingRan();
  expectClosed();
}

TEST_F(Dump, AStandardOutputThatTakesNothingFails) {
  const Outcome outcome = inChild([] {
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ::dup2(full, STDOUT_FILENO);
    return runInThisProcess({"--dump-dependency-tree"});
  });
  waitForProcesses();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(events(), Contains(logLine(2,
                                         "unable to write dependency tree (standard output): No "
                                         "space left on device.\n")));
  expectClosed();
}

TEST_F(Dump, ARelativePathIsBelowTheRoot) {
  const Outcome outcome = inChild([] {
    if (::chdir("/tmp") != 0) return 99;
    return runInThisProcess({"--dump-dependency-tree=tree.dot", kBoth});
  });
  waitForProcesses();
  EXPECT_EQ(outcome.status, 0);
  expectGraph(readFile("/tmp/../tree.dot"));
}

TEST_F(Dump, InInitModeTheDaemonsAreStartedAndReloadedAllTheSame) {
  writeFile("/etc/init.d/evtd", "#!/bin/sh\necho started > /tmp/evtd\n", 0755);
  static volatile std::sig_atomic_t signals = 0;
  std::signal(SIGUSR1, [](int) { signals = signals + 1; });
  writeFile("/var/run/nimbus/hvsyslogd.pid", std::to_string(::getpid()));
  const Outcome outcome = bootforge({"--init", "--dump-dependency-tree", kBoth});
  std::signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(outcome.status, 0);
  expectGraph(outcome.out);
  EXPECT_TRUE(exists("/tmp/evtd"));
  EXPECT_EQ(signals, 1);
  expectNothingRan();
  expectClosed();
}

TEST_F(Dump, InInvokeModeThereIsNoProfileAsEver) {
  const Outcome outcome =
      bootforge({"--invoke", "--method=start", "--dump-dependency-tree", kBoth});
  EXPECT_EQ(outcome.status, 0);
  expectGraph(outcome.out);
  EXPECT_FALSE(exists(kProfile));
  expectNothingRan();
}

TEST_F(Dump, TheProfileHasPluginsThatNeverRan) {
  EXPECT_EQ(bootforge({"--dump-dependency-tree=/tmp/tree.dot", kBoth}).status, 0);
  EXPECT_THAT(readFile(kProfile),
              testing::HasSubstr("\n[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] "
                                 "sysboot: net\n[1970-01-01 00:00:00.000000 - 1970-01-01 "
                                 "00:00:00.000000] sysboot: web\n==="));
}

TEST_F(Dump, AFailedEnumerationDumpsNothing) {
  const Outcome outcome = bootforge({"--dump-dependency-tree", "--plugin-directory=/missing"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  expectClosed();
}

}  // namespace
}  // namespace bootforge::test
