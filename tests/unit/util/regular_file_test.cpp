#include "util/regular_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tests/double/faults.h"
#include "tests/support/own_process.h"
#include "tests/support/scratch_root.h"

namespace bootforge::test {
namespace {

constexpr const char* kFile = "/tmp/file";

class RegularFile : public testing::Test {
 protected:
  void SetUp() override {
    doubles::resetFaults();
    descriptors_ = countOpenDescriptors();
  }
  void TearDown() override {
    doubles::resetFaults();
    EXPECT_EQ(countOpenDescriptors(), descriptors_) << "left open";
  }

  /// Expects that the file can be neither opened nor read, for this reason.
  static void expectRefused(const char* path, int error) {
    errno = 0;
    EXPECT_FALSE(openRegularFile(path)) << path;
    EXPECT_EQ(errno, error) << path << ": " << std::strerror(errno);
    errno = 0;
    EXPECT_FALSE(readRegularFile(path)) << path;
    EXPECT_EQ(errno, error) << path << ": " << std::strerror(errno);
  }

 private:
  int descriptors_ = 0;
};

TEST_F(RegularFile, IsReadWhole) {
  for (const std::size_t size : {0U, 1U, 4094U, 4095U, 4096U, 4097U, 1'000'000U}) {
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7);
    writeFile(kFile, content);
    EXPECT_EQ(readRegularFile(kFile), content) << size;
    EXPECT_EQ(readAll(openRegularFile(kFile)), content) << size;
  }
}

TEST_F(RegularFile, IsOpenedCloseOnExec) {
  writeFile(kFile, "");
  const UniqueFd file = openRegularFile(kFile);
  ASSERT_TRUE(file);
  EXPECT_EQ(::fcntl(file.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(RegularFile, IsFoundThroughALink) {
  writeFile(kFile, "text");
  ASSERT_EQ(::symlink(kFile, "/tmp/link"), 0);
  EXPECT_EQ(readRegularFile("/tmp/link"), "text");
}

TEST_F(RegularFile, IsReadFromWhereItStands) {
  writeFile(kFile, "one two");
  const UniqueFd file = openRegularFile(kFile);
  ASSERT_EQ(::lseek(file.get(), 4, SEEK_SET), 4);
  EXPECT_EQ(readAll(file), "two");
  EXPECT_EQ(readAll(file), "");
}

TEST_F(RegularFile, IsRefusedWhenItIsNotThere) {
  expectRefused("/tmp/missing", ENOENT);
  expectRefused("/tmp/missing/file", ENOENT);
  ASSERT_EQ(::symlink("/tmp/nowhere", "/tmp/dangling"), 0);
  expectRefused("/tmp/dangling", ENOENT);
  ASSERT_EQ(::symlink("/tmp/loop", "/tmp/loop"), 0);
  expectRefused("/tmp/loop", ELOOP);
}

TEST_F(RegularFile, IsNoFolder) { expectRefused("/tmp", EISDIR); }

TEST_F(RegularFile, IsNoFifoAndNobodyWaitsForOne) {
  ASSERT_EQ(::mkfifo("/tmp/fifo", 0600), 0);
  expectRefused("/tmp/fifo", ENXIO);
  // With somebody at the other end too.
  const UniqueFd other(::open("/tmp/fifo", O_RDWR | O_CLOEXEC));
  expectRefused("/tmp/fifo", ENXIO);
}

TEST_F(RegularFile, IsNoDevice) { expectRefused("/dev/zero", ENXIO); }

TEST_F(RegularFile, IsNoSocket) {
  const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/tmp/socket");
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  expectRefused("/tmp/socket", ENXIO);
}

TEST_F(RegularFile, IsRefusedToThoseWhoMayNotReadIt) {
  writeFile(kFile, "secret", 0000);
  inChild([] {
    constexpr uid_t kSomebody = 54321;
    if (::geteuid() == 0 && ::setuid(kSomebody) != 0) return;  // nobody else in this namespace
    expectRefused(kFile, EACCES);
  });
}

TEST_F(RegularFile, IsOpenedAndReadThoughInterrupted) {
  writeFile(kFile, "text");
  doubles::failCall("open", {.error = EINTR, .times = 2});
  doubles::failCall("read", {.error = EINTR, .times = 3});
  EXPECT_EQ(readRegularFile(kFile), "text");
}

TEST_F(RegularFile, ThatCannotBeReadGivesNothing) {
  writeFile(kFile, "text");
  doubles::failCall("read", {EIO});
  EXPECT_FALSE(readRegularFile(kFile));
  EXPECT_EQ(errno, EIO);
  doubles::failCall("read", {.error = EIO, .skip = 1});
  EXPECT_FALSE(readAll(openRegularFile(kFile)));
  EXPECT_EQ(errno, EIO);
}

TEST_F(RegularFile, ThatGrowsWhileItIsReadIsReadToItsNewEnd) {
  writeFile(kFile, std::string(4096, 'a'));
  doubles::afterCall("read", [] { writeFile(kFile, std::string(20'000, 'a')); });
  EXPECT_EQ(readAll(openRegularFile(kFile)), std::string(20'000, 'a'));
}

TEST_F(RegularFile, ThatShrinksWhileItIsReadGivesWhatWasThere) {
  writeFile(kFile, std::string(10'000, 'a'));
  doubles::afterCall("read", [] { writeFile(kFile, ""); });
  EXPECT_EQ(readAll(openRegularFile(kFile)), std::string(4096, 'a'));
}

TEST_F(RegularFile, IsReadUpToTheLimitAndNotBeyondIt) {
  writeFile(kFile, std::string(kReadLimit, 'a'));
  EXPECT_EQ(readRegularFile(kFile)->size(), kReadLimit);
  EXPECT_EQ(readAll(openRegularFile(kFile))->size(), kReadLimit);
  writeFile(kFile, std::string(kReadLimit + 1, 'a'));
  EXPECT_FALSE(readRegularFile(kFile));
  EXPECT_EQ(errno, EFBIG);
  errno = 0;
  EXPECT_FALSE(readAll(openRegularFile(kFile)));
  EXPECT_EQ(errno, EFBIG);
}

// A hole costs no disk, and would cost all memory.
TEST_F(RegularFile, OfAHugeSizeIsNotReadAtAll) {
  writeFile(kFile, "");
  ASSERT_EQ(::truncate(kFile, off_t{1} << 40), 0);
  doubles::resetFaults();
  EXPECT_FALSE(readRegularFile(kFile));
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(doubles::callCount("read"), 0);
}

TEST_F(RegularFile, ThatGrowsBeyondTheLimitWhileItIsReadIsTooLarge) {
  writeFile(kFile, std::string(4096, 'a'));
  doubles::afterCall("read", [] { ASSERT_EQ(::truncate(kFile, off_t{1} << 30), 0); });
  errno = 0;
  EXPECT_FALSE(readAll(openRegularFile(kFile)));
  EXPECT_EQ(errno, EFBIG);
}

// As it had that size when it was asked, and has grown since.
TEST_F(RegularFile, ThatIsLargerThanItSaidIsReadToItsEndWithinTheLimit) {
  for (const std::size_t said : {0U, 1U, 4096U}) {
    writeFile(kFile, std::string(kReadLimit, 'a'));
    EXPECT_EQ(readAll(openRegularFile(kFile), said)->size(), kReadLimit);
    writeFile(kFile, std::string(kReadLimit + 1, 'a'));
    errno = 0;
    EXPECT_FALSE(readAll(openRegularFile(kFile), said));
    EXPECT_EQ(errno, EFBIG);
  }
}

TEST_F(RegularFile, IsReadByOneCallWhereItsSizeIsKnown) {
  writeFile(kFile, std::string(100'000, 'a'));
  doubles::resetFaults();
  EXPECT_EQ(readRegularFile(kFile)->size(), 100'000U);
  EXPECT_EQ(doubles::callCount("read"), 1);
}

// A pipe gives as much at a time as it likes: 4,095 bytes are no end.
TEST_F(RegularFile, IsNotNeededToReadAll) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd source(ends[0]);
  UniqueFd sink(ends[1]);
  const std::string first(4095, 'a');
  const std::string rest(20'000, 'b');
  ASSERT_EQ(::write(sink.get(), first.data(), first.size()), 4095);
  doubles::afterCall("read", [&] {
    EXPECT_EQ(::write(sink.get(), rest.data(), rest.size()), 20'000);
    sink.reset();
  });
  EXPECT_EQ(readAll(source), first + rest);
}

}  // namespace
}  // namespace bootforge::test
