// Owned descriptors and error texts for the Linux substitutes, which stand below every other room.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace host_linux {

/// Owns a file descriptor; -1 means none.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { close(); }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void close() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

 private:
  int fd_ = -1;
};

/// Puts errno back at the end of a scope.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
  ~ErrnoKeeper() { errno = saved_; }

 private:
  const int saved_ = errno;
};

/// Repeats a system call while a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

/// The strerror(3) text of an errno value, safe in any thread.
std::string errorText(int error);

/// Writes all of `text`, however many calls that takes. False and errno when that is impossible.
bool writeAll(int fd, const char* text, std::size_t size);

}  // namespace host_linux
