// The files of an image as a boot of it sees them, with openat2(2) and without it.
#include "analyze/image/root_folder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include "tests/support/scratch_root.h"

namespace {

int openat2Error = 0;      // what it fails with; 0: it is the kernel's
int openat2Failures = -1;  // how often; for ever where it is negative

}  // namespace

extern "C" {

long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...);
long __wrap_syscall(long number, ...) {
  if (number == SYS_openat2 && openat2Error != 0 && openat2Failures != 0) {
    --openat2Failures;
    errno = openat2Error;
    return -1;
  }
  // No call of the code under test has more words, and behind these is the caller's stack.
  long words[5];
  va_list list;
  va_start(list, number);
  for (long& word : words) word = va_arg(list, long);
  va_end(list);
  return __real_syscall(number, words[0], words[1], words[2], words[3], words[4]);
}

}  // extern "C"

namespace bootforge::analyze {
namespace {

using ::testing::UnorderedElementsAre;

/// What there is at a path: a file's content, "folder", or the error in words.
std::string seen(const RootFolder& root, const std::string& path) {
  FileStatus status;
  if (const auto text = root.read(path, &status)) return *text;
  const int error = errno;
  if (status.isFolder()) return "folder";
  return std::string("error: ") + std::strerror(error);
}

/// In the way of this run: with the system call, or with the error that it fails with.
class RootFolderTest : public ::testing::TestWithParam<int> {
 protected:
  RootFolderTest() {
    openat2Error = GetParam();
    openat2Failures = -1;
    test::writeFile("/image/etc/file", "inside");
    test::writeFile("/image/etc/deep/er/file", "deeper");
    test::writeFile("/outside/file", "outside");
    test::writeFile("/image/outside/other", "in its place");
  }
  ~RootFolderTest() override { openat2Error = 0; }

  static void link(const std::string& target, const std::string& path) {
    ASSERT_EQ(::symlink(target.c_str(), ("/image" + path).c_str()), 0);
  }
};

INSTANTIATE_TEST_SUITE_P(Opened, RootFolderTest, testing::Values(0, ENOSYS, EPERM, EAGAIN),
                         [](const auto& way) {
                           return way.param == 0        ? "ByTheSystemCall"
                                  : way.param == ENOSYS ? "WhereThereIsNone"
                                  : way.param == EPERM  ? "WhereItIsForbidden"
                                                        : "WhereItGivesUp";
                         });

TEST_P(RootFolderTest, FindsFilesWhereverTheirPathsGo) {
  const RootFolder root("/image");
  for (const char* const path :
       {"/etc/file", "etc/file", "//etc///file", "/./etc/././file", "/../etc/file",
        "../../etc/file", "/etc/../etc/file", "/etc/deep/../file", "/etc/deep/er/../../file",
        "/etc/../../etc/file"}) {
    EXPECT_EQ(seen(root, path), "inside") << path;
  }
  for (const char* const path : {"/", "/.", "/..", "/../..", "/etc", "/etc/", "/etc/.",
                                 "/etc/deep/..", "/etc/deep/er/", "/etc//"}) {
    EXPECT_EQ(seen(root, path), "folder") << path;
  }
  EXPECT_EQ(seen(root, "/etc/deep/er/file"), "deeper");
}

TEST_P(RootFolderTest, SaysWhyAPathLeadsNowhere) {
  const RootFolder root("/image");
  for (const char* const path : {"", "/none", "/none/", "/etc/none", "/none/file",
                                 "/none/../etc/file", "/etc/deep/er/../../none"}) {
    EXPECT_EQ(seen(root, path), "error: No such file or directory") << path;
  }
  for (const char* const path : {"/etc/file/", "/etc/file/.", "/etc/file/..", "/etc/file/x"}) {
    EXPECT_EQ(seen(root, path), "error: Not a directory") << path;
  }
}

TEST_P(RootFolderTest, FollowsLinksInside) {
  link("file", "/etc/relative");
  link("/etc/file", "/etc/absolute");
  link("deep/er", "/etc/folder");
  link("/", "/etc/top");
  link("../../../../../etc/relative", "/etc/deep/dots");
  link("/etc/deep/dots", "/etc/deep/er/chain");
  link("file/", "/etc/slash");
  link("deep/", "/etc/folder_slash");
  const RootFolder root("/image");
  for (const char* const path :
       {"/etc/relative", "/etc/absolute", "/etc/folder/../../file", "/etc/top/etc/file",
        "/etc/deep/dots", "/etc/deep/er/chain", "/etc/folder/chain", "/etc/top/etc/top/etc/file",
        "/etc/folder_slash/../file"}) {
    EXPECT_EQ(seen(root, path), "inside") << path;
  }
  EXPECT_EQ(seen(root, "/etc/folder/file"), "deeper");
  EXPECT_EQ(seen(root, "/etc/folder"), "folder");
  EXPECT_EQ(seen(root, "/etc/top"), "folder");
  EXPECT_EQ(seen(root, "/etc/slash"), "error: Not a directory");
  EXPECT_EQ(seen(root, "/etc/relative/"), "error: Not a directory");
}

TEST_P(RootFolderTest, LetsNoLinkLeadOut) {
  link("/outside", "/etc/out");
  link("../../../outside/file", "/etc/dots");
  link("../..", "/etc/up");
  const RootFolder root("/image");
  EXPECT_EQ(seen(root, "/etc/out/file"), "error: No such file or directory");
  EXPECT_EQ(seen(root, "/etc/out/other"), "in its place");
  EXPECT_EQ(seen(root, "/etc/dots"), "error: No such file or directory");
  EXPECT_EQ(seen(root, "/etc/up/up/outside/file"), "error: No such file or directory");
  EXPECT_EQ(seen(root, "/etc/up/../../outside/other"), "in its place");
}

TEST_P(RootFolderTest, FollowsFortyLinksAndNoMore) {
  link("loop", "/loop");
  link("there", "/here");
  link("here", "/there");
  for (int i = 1; i <= 41; ++i) {
    link(i == 1 ? "etc/file" : "link" + std::to_string(i - 1), "/link" + std::to_string(i));
  }
  const RootFolder root("/image");
  EXPECT_EQ(seen(root, "/link40"), "inside");
  for (const char* const path : {"/link41", "/loop", "/loop/x", "/here", "/there"}) {
    EXPECT_EQ(seen(root, path), "error: Too many levels of symbolic links") << path;
  }
}

TEST_P(RootFolderTest, ListsAFolderAndReadsALinkItself) {
  link("deep", "/etc/folder");
  const RootFolder root("/image");
  const auto names = root.list("/etc/");
  ASSERT_TRUE(names.has_value());
  EXPECT_THAT(*names, UnorderedElementsAre("file", "deep", "folder"));
  EXPECT_FALSE(root.list("/etc/file").has_value());
  EXPECT_EQ(root.readLink("/etc/folder"), "deep");
  EXPECT_EQ(root.readLink("/etc/file"), std::nullopt);
  const auto status = root.status("/etc/folder");
  EXPECT_TRUE(status && status->isFolder());
}

TEST(RootFolder, AsksAgainWhenTheKernelGivesUp) {
  test::writeFile("/image/etc/file", "inside");
  openat2Error = EAGAIN;
  openat2Failures = 3;
  EXPECT_EQ(seen(RootFolder("/image"), "/etc/../etc/file"), "inside");
  EXPECT_EQ(openat2Failures, 0);
  openat2Error = 0;
}

TEST_P(RootFolderTest, LeavesNothingOpen) {
  const auto open = [] {
    int count = 0;
    for (int fd = 0; fd < 256; ++fd) count += ::fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
  };
  const RootFolder root("/image");
  const int before = open();
  for (const char* const path : {"/etc/deep/er/file", "/etc/none/x", "/etc/deep/er/../.."}) {
    seen(root, path);
  }
  EXPECT_EQ(open(), before);
}

}  // namespace
}  // namespace bootforge::analyze
