// The descriptors of children, and of the program at its start.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "tests/double/faults.h"
#include "tests/support/open_descriptor.h"
#include "tests/support/own_process.h"
#include "tests/support/refused_call.h"
#include "tests/support/scratch_root.h"
#include "util/standard_streams.h"
#include "util/unique_fd.h"

namespace bootforge::test {
namespace {

bool isNullDevice(int fd) {
  struct stat ours {};
  struct stat null {};
  return ::fstat(fd, &ours) == 0 && ::stat("/dev/null", &null) == 0 && S_ISCHR(ours.st_mode) &&
         ours.st_rdev == null.st_rdev;
}

/// In a child: opens descriptors here and there and closes all but the standard streams.
void expectOthersToBeClosed() {
  for (int fd : {3, 4, 7, 100, 255}) ASSERT_EQ(::dup2(STDOUT_FILENO, fd), fd);
  const bool before[] = {isOpen(0), isOpen(1), isOpen(2)};
  closeOtherDescriptors();
  for (int fd = 0; fd <= 2; ++fd) EXPECT_EQ(isOpen(fd), before[fd]) << fd;
  for (int fd = 3; fd < 1024; ++fd) EXPECT_FALSE(isOpen(fd)) << fd;
}

TEST(OtherDescriptors, AreClosedAndTheStandardStreamsAreNot) { inChild(expectOthersToBeClosed); }

TEST(OtherDescriptors, AreClosedWhenTheStandardStreamsAreMissing) {
  inChild([] {
    ::close(STDIN_FILENO);
    expectOthersToBeClosed();
    EXPECT_FALSE(isOpen(STDIN_FILENO));
  });
}

// Kernels before 5.9 have no close_range(2).
TEST(OtherDescriptors, AreClosedOneByOneOnAnOldKernel) {
  inChild([] {
    const rlimit limit{1024, 1024};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    if (!refuse(SYS_close_range, ENOSYS)) {
      GTEST_SKIP() << "system calls cannot be refused here";
    }
    ASSERT_EQ(::syscall(SYS_close_range, 1000U, 1000U, 0), -1);
    ASSERT_EQ(errno, ENOSYS);
    expectOthersToBeClosed();
  });
}

// The root outside the tests' root: /proc is there.
const int outside = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);

/// In a child: leaves the tests' root for one with /proc, on a kernel without close_range(2).
/// False where that cannot be had.
bool becomeOldHost() {
  return ::fchdir(outside) == 0 && ::chroot(".") == 0 && ::access("/proc/self/fd", R_OK) == 0 &&
         refuse(SYS_close_range, ENOSYS);
}

// The limit may be a thousand million.
TEST(OtherDescriptors, AreFoundInProcOnAnOldKernelWhateverTheLimit) {
  inChild([] {
    if (!becomeOldHost()) GTEST_SKIP() << "no old kernel with /proc can be had here";
    const int before = doubles::callCount("close");
    expectOthersToBeClosed();
    EXPECT_LT(doubles::callCount("close") - before, 100);
  });
}

TEST(OtherDescriptors, AreAllFoundInProcThoughTheyAreMany) {
  inChild([] {
    if (!becomeOldHost()) GTEST_SKIP() << "no old kernel with /proc can be had here";
    for (int fd = 300; fd < 1000; ++fd) ASSERT_EQ(::dup2(STDOUT_FILENO, fd), fd);
    expectOthersToBeClosed();
  });
}

// Every set of closed streams; a bit for each.
TEST(MissingStandardStreams, AreOpenedOnTheNullDeviceAndTheOthersStay) {
  for (int missing = 0; missing < 8; ++missing) {
    inChild([missing] {
      const UniqueFd saved(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100));
      for (int fd = 0; fd <= 2; ++fd) ::dup2(::open("/tmp/stream", O_RDWR | O_CREAT, 0600), fd);
      closeOtherDescriptors();
      for (int fd = 0; fd <= 2; ++fd) {
        if ((missing & 1 << fd) != 0) ::close(fd);
      }
      openMissingStandardStreams();
      bool right = !isOpen(3);
      for (int fd = 0; fd <= 2; ++fd) {
        right = right && isOpen(fd) && isNullDevice(fd) == ((missing & 1 << fd) != 0);
        right = right && ::fcntl(fd, F_GETFD) == 0 && (::fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDWR;
      }
      // Nobody would see a failure's text.
      if (!right) ::_exit(1);
    });
  }
}

TEST(MissingStandardStreams, StayMissingWithoutANullDevice) {
  inChild([] {
    doubles::failCall("open", {ENOENT});
    ::close(STDIN_FILENO);
    openMissingStandardStreams();
    EXPECT_FALSE(isOpen(STDIN_FILENO));
  });
  doubles::resetFaults();
}

}  // namespace
}  // namespace bootforge::test
