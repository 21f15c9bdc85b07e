// Tests of what a process does once only: its registry of milestones, its first look at the host.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace bootforge::test {

/// Runs the body of a test in a forked child, whose failures become ours.
inline void inChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    body();
    std::fflush(nullptr);
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "failed in the child";
}

/// Runs the body of a test where no other has been or will be: here, when this process has this one
/// test to run, else in a child. Once a test.
inline void inOwnProcess(const std::function<void()>& body) {
  if (testing::UnitTest::GetInstance()->test_to_run_count() == 1) {
    body();
  } else {
    inChild(body);
  }
}

}  // namespace bootforge::test
