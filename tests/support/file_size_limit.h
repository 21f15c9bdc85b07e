// A disk that is full, as far as this process is concerned.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace bootforge::test {

/// While it lives, this process and the children that it forks cannot write beyond the given size
/// of a file: the write that crosses it is cut short, the next one fails with EFBIG.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &before_), 0);
    set(bytes);
  }
  ~FileSizeLimit() {
    set(before_.rlim_cur);
    std::signal(SIGXFSZ, signal_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void set(rlim_t bytes) {
    const rlimit limit{bytes, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }

  rlimit before_{};
  sighandler_t signal_;
};

}  // namespace bootforge::test
