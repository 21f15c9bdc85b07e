#include "util/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "util/system_error.h"

namespace bootforge {
namespace {

/// Opens a regular file and tells its size at that moment.
UniqueFd openWithSize(const char* path, off_t* size) {
  // O_NONBLOCK: opening a FIFO without a writer would wait. It means nothing for a regular file.
  UniqueFd file(retryInterrupted(
      [path] { return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!file) return file;
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return UniqueFd();
  if (!S_ISREG(status.st_mode)) {
    file.reset();
    errno = S_ISDIR(status.st_mode) ? EISDIR : ENXIO;
    return UniqueFd();
  }
  *size = status.st_size;
  return file;
}

std::nullopt_t tooLarge() {
  errno = EFBIG;
  return std::nullopt;
}

}  // namespace

UniqueFd openRegularFile(const char* path) {
  off_t size = 0;
  return openWithSize(path, &size);
}

std::optional<std::string> readAll(const UniqueFd& file, std::optional<std::size_t> size) {
  if (size > kReadLimit) return tooLarge();
  std::string content;
  // One byte more than expected, so that a file that has grown shows by a full buffer.
  content.resize(size.value_or(4095) + 1);
  std::size_t used = 0;
  for (;;) {
    ssize_t count = retryInterrupted(
        [&] { return ::read(file.get(), content.data() + used, content.size() - used); });
    if (count < 0) return std::nullopt;
    used += static_cast<std::size_t>(count);
    if (used > kReadLimit) return tooLarge();
    if (count == 0 || used == size) break;
    if (used == content.size()) content.resize(content.size() * 2);
  }
  content.resize(used);
  return content;
}

std::optional<std::string> readRegularFile(const char* path) {
  off_t size = 0;
  UniqueFd file = openWithSize(path, &size);
  if (!file) return std::nullopt;
  return readAll(file, static_cast<std::size_t>(size));
}

}  // namespace bootforge
