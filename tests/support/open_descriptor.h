// What the kernel knows of a descriptor.
#pragma once

#include <fcntl.h>

namespace bootforge::test {

inline bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

}  // namespace bootforge::test
