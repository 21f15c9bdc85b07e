#include "util/unique_fd.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <type_traits>
#include <utility>

#include "tests/double/faults.h"
#include "tests/support/open_descriptor.h"

namespace bootforge::test {
namespace {

int openNull() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

static_assert(!std::is_copy_constructible_v<UniqueFd> && !std::is_copy_assignable_v<UniqueFd>);
static_assert(std::is_nothrow_move_constructible_v<UniqueFd>);

TEST(UniqueFd, IsNoneAtFirst) {
  const UniqueFd none;
  EXPECT_EQ(none.get(), -1);
  EXPECT_FALSE(none);
  EXPECT_FALSE(UniqueFd(-1));
}

TEST(UniqueFd, CountsDescriptorZeroAsOne) {
  UniqueFd zero(0);
  EXPECT_TRUE(zero);
  EXPECT_EQ(zero.release(), 0);
}

TEST(UniqueFd, ClosesWhatItOwnsAtItsEnd) {
  int fd = -1;
  {
    const UniqueFd owner(openNull());
    ASSERT_TRUE(owner);
    fd = owner.get();
    EXPECT_TRUE(isOpen(fd));
  }
  EXPECT_FALSE(isOpen(fd));
}

TEST(UniqueFd, ReleasesWithoutClosing) {
  UniqueFd owner(openNull());
  const int fd = owner.release();
  EXPECT_FALSE(owner);
  owner.reset();
  EXPECT_TRUE(isOpen(fd));
  ::close(fd);
}

TEST(UniqueFd, ClosesTheOldOneWhenItGetsANewOne) {
  UniqueFd owner(openNull());
  const int first = owner.get();
  const int second = openNull();
  owner.reset(second);
  EXPECT_FALSE(isOpen(first));
  EXPECT_TRUE(isOpen(second));
  owner.reset();
  EXPECT_FALSE(isOpen(second));
  EXPECT_FALSE(owner);
}

TEST(UniqueFd, IsMovedWithItsDescriptor) {
  UniqueFd first(openNull());
  const int fd = first.get();
  UniqueFd second(std::move(first));
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(second.get(), fd);
  UniqueFd third(openNull());
  const int old = third.get();
  third = std::move(second);
  EXPECT_EQ(third.get(), fd);
  EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move)
  EXPECT_FALSE(isOpen(old));
  UniqueFd& itself = third;
  third = std::move(itself);
  EXPECT_EQ(third.get(), fd);
  EXPECT_TRUE(isOpen(fd));
}

// An interrupted close has closed: a second one might hit somebody else's descriptor.
TEST(UniqueFd, ClosesOnceEvenWhenThatIsInterrupted) {
  doubles::resetFaults();
  UniqueFd owner(openNull());
  const int before = doubles::callCount("close");
  doubles::failCall("close", {EINTR});
  owner.reset();
  EXPECT_EQ(doubles::callCount("close"), before + 1);
}

}  // namespace
}  // namespace bootforge::test
