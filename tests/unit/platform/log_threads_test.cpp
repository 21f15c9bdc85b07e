#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/log.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/stdout_log.h"

namespace bootforge::test {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(LogFromThreads, NeverMixesMessages) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    std::vector<std::thread> threads;
    for (char name : {'a', 'b', 'c', 'd'}) {
      threads.emplace_back([name] {
        for (int i = 0; i < 500; ++i) Log_Level(5, "%s", std::string(50, name).c_str());
      });
    }
    for (std::thread& thread : threads) thread.join();
  });
  std::vector<std::string> lines = linesOf(child.out);
  EXPECT_EQ(lines.size(), 2000U);
  for (const std::string& line : lines) {
    ASSERT_TRUE(line.starts_with("info bootforge[")) << line;
    std::size_t text = line.find("]: ") + 3;
    ASSERT_EQ(line.substr(text), std::string(50, line[text]));
  }
}

TEST(LogFromThreads, LetsAForkedChildLogUnderItsOwnPid) {
  constexpr int kChildren = 30;
  Finished child = runInChild([] {
    logToStdoutPlainly();
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
      threads.emplace_back([&stop] {
        // Long messages: the lock is held for a good part of the time.
        std::string text(5'000, 'x');
        while (!stop) {
          Log_Level(5, "%s", text.c_str());
          std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
      });
    }
    for (int i = 0; i < kChildren; ++i) {
      pid_t forked = fork();
      if (forked == 0) {
        alarm(30);  // a lock that was left locked would hold it for ever
        Log_Level(5, "from a child %d", getpid());
        _exit(0);
      }
      int status = -1;
      EXPECT_EQ(waitpid(forked, &status, 0), forked);
      EXPECT_EQ(status, 0);
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
  });
  EXPECT_EQ(child.status, 0);
  int children = 0;
  for (const std::string& line : linesOf(child.out)) {
    if (line.ends_with('x')) continue;
    int prefix = 0;
    int text = 0;
    EXPECT_EQ(std::sscanf(line.c_str(), "info bootforge[%d]: from a child %d", &prefix, &text), 2);
    EXPECT_EQ(prefix, text);
    ++children;
  }
  EXPECT_EQ(children, kChildren);
}

}  // namespace
}  // namespace bootforge::test
