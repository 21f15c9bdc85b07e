#include "platform/linux/descriptor.h"

#include <poll.h>

#include <cstring>

namespace host_linux {

std::string errorText(int error) {
  char buffer[64];
  return strerror_r(error, buffer, sizeof buffer);
}

bool writeAll(int fd, const char* text, std::size_t size) {
  while (size > 0) {
    ssize_t written = ::write(fd, text, size);
    if (written >= 0) {
      text += written;
      size -= static_cast<std::size_t>(written);
    } else if (errno == EAGAIN) {
      // Somebody who shares the stream made it non-blocking; a full pipe is still waited for.
      pollfd writable{fd, POLLOUT, 0};
      ::poll(&writable, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace host_linux
