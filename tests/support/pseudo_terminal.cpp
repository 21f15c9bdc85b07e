#include "tests/support/pseudo_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace bootforge::test {

void PseudoTerminal::SetUp() {
  ASSERT_EQ(mkdir("/dev/pts", 0755), 0);
  isMounted_ = mountTerminals();
  if (!isMounted_) GTEST_SKIP() << "no terminals of our own here: " << std::strerror(errno);
  master_ = open("/dev/pts/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(master_, 0);
  ASSERT_EQ(unlockpt(master_), 0);
  terminal_ = open("/dev/pts/0", O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal_, 0);
}

void PseudoTerminal::TearDown() {
  close(terminal_);
  close(master_);
  EXPECT_TRUE(!isMounted_ || umount("/dev/pts") == 0);
}

bool PseudoTerminal::mountTerminals() {
  return mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666") == 0;
}

std::string PseudoTerminal::shown() const {
  std::string text;
  pollfd ready{master_, POLLIN, 0};
  // The terminal passes text on behind the writer's back; a lone look could come too early.
  while (poll(&ready, 1, text.empty() ? 2000 : 50) > 0) {
    char buffer[65536];
    const ssize_t count = read(master_, buffer, sizeof buffer);
    if (count <= 0) break;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace bootforge::test
