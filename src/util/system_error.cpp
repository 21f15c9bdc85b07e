#include "util/system_error.h"

#include <cstring>

namespace bootforge {

std::string systemErrorText(int error) {
  // The GNU variant, strerror_r(3): it returns a constant text or fills the buffer.
  char buffer[64];
  return strerror_r(error, buffer, sizeof buffer);
}

}  // namespace bootforge
