#include "tests/unit/platform/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "tests/support/scratch_root.h"

namespace bootforge::test {
namespace {

constexpr const char* kOut = "/child-out";
constexpr const char* kErr = "/child-err";

void redirect(int stream, const char* path) {
  int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0 || dup2(fd, stream) != stream) _exit(99);
  close(fd);
}

}  // namespace

Finished runInChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  pid_t child = fork();
  if (child == 0) {
    redirect(STDOUT_FILENO, kOut);
    redirect(STDERR_FILENO, kErr);
    alarm(60);
    body();
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 98 : 0);
  }
  Finished finished;
  EXPECT_GT(child, 0);
  EXPECT_EQ(waitpid(child, &finished.status, 0), child);
  finished.out = readFile(kOut);
  finished.err = readFile(kErr);
  return finished;
}

bool waitUntil(const std::function<bool()>& condition) {
  for (int i = 0; i < 20'000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

}  // namespace bootforge::test
