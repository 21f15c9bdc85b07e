// How many workers a run has.
#include <cerrno>
#include <filesystem>

#include "main/run_options.h"
#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using doubles::logLine;
using doubles::script;
using testing::Contains;
using testing::HasSubstr;

class Threads : public ProgramTest {
 protected:
  static void writePlugins(int count) {
    for (int i = 0; i < count; ++i) {
      writeFile(kPlugins + ("p" + std::to_string(i) + ".json"), description("[]", "[]", "[]"));
    }
  }

  /// The thread count of a run with these options, which must succeed.
  static unsigned threadCount(const std::vector<std::string>& words) {
    const Outcome outcome = inChild([&words] {
      const int status = runInThisProcess(words);
      std::printf("%u", RunOptions::instance().threadCount);
      return status;
    });
    waitForProcesses();
    EXPECT_EQ(outcome.status, 0);
    return static_cast<unsigned>(std::stoul(outcome.out));
  }
};

TEST_F(Threads, AThreadForEachNodeWhereProcessorsAbound) {
  writePlugins(3);
  script().processorCount = 16;
  EXPECT_EQ(threadCount({"--parallel"}), 3U);
  EXPECT_THAT(readFile(kProfile), HasSubstr(" Parallel: 1\n"));
}

TEST_F(Threads, TwoThreadsForEachProcessorAtMost) {
  writePlugins(100);
  script().processorCount = 4;
  EXPECT_EQ(threadCount({"--parallel"}), 8U);
}

TEST_F(Threads, OneThreadWithoutParallel) {
  writePlugins(3);
  script().processorCount = 16;
  EXPECT_EQ(threadCount({}), 1U);
  EXPECT_EQ(threadCount({"--parallel", "--interactive-mode-requires=x", "--interactive"}), 1U);
}

TEST_F(Threads, MilestonesDoNotCount) {
  writeFile(kPlugins + std::string("a.json"), description("[]", R"(["x", "y", "z"])", "[]"));
  script().processorCount = 16;
  EXPECT_EQ(threadCount({"--parallel"}), 1U);
}

TEST_F(Threads, InjectionsDoCount) {
  writePlugins(1);
  writeFile("/etc/nimbus/bootforge/debug.conf", "a:x:y:true\nb:x:y:true\n");
  script().processorCount = 16;
  EXPECT_EQ(threadCount({"--parallel"}), 3U);
}

TEST_F(Threads, WithoutNodesThereIsNothingToWaitFor) {
  std::filesystem::create_directories(kPlugins);
  EXPECT_EQ(threadCount({"--parallel"}), 0U);
}

TEST_F(Threads, AStatelessHostRunsOneAfterTheOther) {
  writePlugins(3);
  writeFile("/stateless.tgz", "");
  script().processorCount = 16;
  EXPECT_EQ(threadCount({"--parallel"}), 1U);
  EXPECT_THAT(readFile(kProfile), HasSubstr(" Parallel: 0\n"));
}

TEST_F(Threads, TheStatelessMarkerMayBeOfAnyType) {
  writePlugins(3);
  std::filesystem::create_directories("/stateless.tgz");
  script().processorCount = 16;
  EXPECT_EQ(threadCount({"--parallel"}), 1U);
  EXPECT_THAT(readFile(kProfile), HasSubstr(" Parallel: 0\n"));
}

TEST_F(Threads, AProcessorCountThatCannotBeHadIsOne) {
  writePlugins(5);
  script().processorCountError = ENOSYS;
  EXPECT_EQ(threadCount({"--parallel"}), 2U);
  EXPECT_THAT(events(), Contains(logLine(3,
                                         "unable to obtain the processor count: Function not "
                                         "implemented.\n")));
}

TEST_F(Threads, ACountOfNoProcessorsIsOne) {
  writePlugins(5);
  script().processorCount = 0;
  EXPECT_EQ(threadCount({"--parallel"}), 2U);
}

TEST_F(Threads, TheProcessorsAreNotCountedWithoutNeed) {
  writePlugins(2);
  script().processorCountError = ENOSYS;
  EXPECT_EQ(threadCount({}), 1U);
  EXPECT_THAT(doubles::records({doubles::Kind::kLog}),
              testing::Not(Contains(testing::Field(&doubles::Record::level, 3))));
}

TEST_F(Threads, AllThreadsWorkAtTheSameTime) {
  // Each of them waits until all three have begun, a minute at most.
  std::string injections;
  for (const char* name : {"a", "b", "c"}) {
    injections += std::string(name) + ":done " + name + ":start:true > /tmp/begun-" + name +
                  "; n=0; until [ -e /tmp/begun-a -a -e /tmp/begun-b -a -e /tmp/begun-c ] || "
                  "[ $n -ge 3000 ]; do n=$((n+1)); sleep 0.02; done; [ $n -lt 3000 ]\n";
  }
  writeFile("/etc/nimbus/bootforge/debug.conf", injections);
  std::filesystem::create_directories(kPlugins);
  script().processorCount = 16;
  EXPECT_EQ(threadCount({"--parallel"}), 3U);
  for (const doubles::Record& record : events()) {
    EXPECT_THAT(record.text, testing::Not(HasSubstr("debug injection")));
  }
}

}  // namespace
}  // namespace bootforge::test
