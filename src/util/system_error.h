// Error texts and interrupted calls.
#pragma once

#include <cerrno>
#include <string>

namespace bootforge {

/// The text of an errno value, as strerror(3) gives it in the C locale, but safe in any thread.
std::string systemErrorText(int error);

/// Repeats a system call while it fails with EINTR.
template <typename Call>
auto retryInterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

}  // namespace bootforge
