#include "platform/host_kernel.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(ProcessorCount, IsTheNumberOfProcessorsThisProcessMayRunOn) {
  cpu_set_t allowed;
  ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
  std::uint32_t count = 0;
  EXPECT_EQ(HvkSyscall_ProcessorCount(&count), 0);
  EXPECT_EQ(count, static_cast<std::uint32_t>(CPU_COUNT(&allowed)));
}

TEST(ProcessorCount, FollowsARestrictionOfTheProcess) {
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
    std::uint32_t count = 0;
    bool right = sched_setaffinity(0, sizeof one, &one) == 0 &&
                 HvkSyscall_ProcessorCount(&count) == 0 && count == 1;
    _exit(right ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
