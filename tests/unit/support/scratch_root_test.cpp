#include "tests/support/scratch_root.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace bootforge::test {
namespace {

TEST(ScratchRoot, HasTheFurnitureOfAHost) {
  for (const char* path : {"/dev", "/tmp", "/var/log", "/var/run/nimbus", "/etc", "/bootbank"}) {
    EXPECT_TRUE(exists(path)) << path;
  }
  EXPECT_FALSE(exists("/usr"));
}

TEST(ScratchRoot, HasARealNullDevice) {
  writeFile("/tmp/unrelated", "");
  int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  struct stat status {};
  EXPECT_EQ(fstat(fd, &status), 0);
  EXPECT_TRUE(S_ISCHR(status.st_mode));
  EXPECT_EQ(write(fd, "x", 1), 1);
  char byte;
  EXPECT_EQ(read(fd, &byte, 1), 0);
  close(fd);
}

TEST(ScratchRoot, HasAShell) {
  EXPECT_EQ(std::system("echo of the shell >/tmp/made"), 0);
  EXPECT_EQ(readFile("/tmp/made"), "of the shell\n");
}

// Two tests with the same body: whichever comes second would see what the first one left.
void expectFreshRootThenSpoilIt() {
  EXPECT_FALSE(exists("/spoilt"));
  EXPECT_FALSE(exists("/bin/spoilt"));
  EXPECT_FALSE(exists("/dev/spoilt"));
  EXPECT_TRUE(exists("/etc"));
  writeFile("/spoilt", "");
  writeFile("/bin/spoilt", "");
  writeFile("/dev/spoilt", "");
  EXPECT_EQ(rmdir("/etc"), 0);
}
TEST(ScratchRoot, IsFreshForATest) { expectFreshRootThenSpoilIt(); }
TEST(ScratchRoot, IsFreshForTheNextTestToo) { expectFreshRootThenSpoilIt(); }

TEST(ScratchRoot, WritesFilesWithTheirDirectoriesAndMode) {
  writeFile("/a/b/c", "text", 0755);
  struct stat status {};
  ASSERT_EQ(stat("/a/b/c", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  EXPECT_EQ(readFile("/a/b/c"), "text");
}

TEST(ScratchRoot, CountsDescriptors) {
  int before = countOpenDescriptors();
  int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(countOpenDescriptors(), before + 1);
  close(fd);
}

}  // namespace
}  // namespace bootforge::test
