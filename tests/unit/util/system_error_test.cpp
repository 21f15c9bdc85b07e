#include "util/system_error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

namespace bootforge::test {
namespace {

TEST(SystemErrorText, IsTheTextOfTheCLibrary) {
  EXPECT_EQ(systemErrorText(0), "Success");
  EXPECT_EQ(systemErrorText(ENOENT), "No such file or directory");
  EXPECT_EQ(systemErrorText(EAGAIN), "Resource temporarily unavailable");
  for (int error = 0; error < 200; ++error) {
    EXPECT_EQ(systemErrorText(error), std::strerror(error)) << error;
  }
}

TEST(SystemErrorText, NamesTheNumberOfAnUnknownError) {
  EXPECT_EQ(systemErrorText(99999), "Unknown error 99999");
  EXPECT_EQ(systemErrorText(-1), "Unknown error -1");
}

TEST(SystemErrorText, IsRightInEveryThread) {
  std::vector<std::thread> threads;
  for (int number = 1000; number < 1004; ++number) {
    threads.emplace_back([number] {
      const std::string expected = "Unknown error " + std::to_string(number);
      for (int turn = 0; turn < 1000; ++turn) EXPECT_EQ(systemErrorText(number), expected);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(RetryInterrupted, RepeatsWhileTheCallIsInterrupted) {
  int calls = 0;
  const int result = retryInterrupted([&calls] {
    errno = EINTR;
    return ++calls < 4 ? -1 : 17;
  });
  EXPECT_EQ(result, 17);
  EXPECT_EQ(calls, 4);
}

TEST(RetryInterrupted, GivesAnyOtherErrorBackAtOnce) {
  int calls = 0;
  const long result = retryInterrupted([&calls] {
    ++calls;
    errno = EIO;
    return -1L;
  });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(calls, 1);
}

// Success leaves errno alone, so what an earlier call left there says nothing.
TEST(RetryInterrupted, DoesNotTakeAnOldErrorForANewOne) {
  errno = EINTR;
  int calls = 0;
  EXPECT_EQ(retryInterrupted([&calls] { return ++calls; }), 1);
}

}  // namespace
}  // namespace bootforge::test
