// Any bytes as the record of run-once plugins, compared with another reader of the same format. The
// first byte says what the rest is: the whole record, the compressed stream of one whose checksum
// is good, or the text of one that is good in every way.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string>

#include "catalogue/run_once_record.h"
#include "util/afstream.h"

namespace {

using Keys = std::set<std::string>;

constexpr const char* kPrefix = "bootforge.run-once=";
constexpr const char* kHeader = "\x1f\x8b\x08\0\0\0\0\0\0\xff";
constexpr std::size_t kHeaderSize = 10;

int record = -1;  // a file in memory that stands in for the one on the boot bank

void require(bool condition) {
  if (!condition) std::abort();
}

std::string deflated(const std::string& text) {
  z_stream stream{};
  require(deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) ==
          Z_OK);
  std::string result(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(result.data());
  stream.avail_out = static_cast<uInt>(result.size());
  require(deflate(&stream, Z_FINISH) == Z_STREAM_END);
  result.resize(stream.total_out);
  deflateEnd(&stream);
  return result;
}

/// The content of a compressed stream that ends where its last byte is; nothing for any other.
std::optional<std::string> inflated(const std::string& bytes) {
  z_stream stream{};
  require(inflateInit2(&stream, -15) == Z_OK);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  std::string result;
  int status = Z_OK;
  while (status == Z_OK) {
    char buffer[16384];
    stream.next_out = reinterpret_cast<Bytef*>(buffer);
    stream.avail_out = sizeof buffer;
    status = inflate(&stream, Z_NO_FLUSH);
    result.append(buffer, sizeof buffer - stream.avail_out);
  }
  const bool whole = status == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  return whole ? std::optional(result) : std::nullopt;
}

std::string littleEndian(std::uint32_t word) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(word >> shift);
  return bytes;
}

std::string gzipOf(const std::string& stream, const std::string& content) {
  const uLong sum =
      crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size()));
  return std::string(kHeader, kHeaderSize) + stream +
         littleEndian(static_cast<std::uint32_t>(sum)) +
         littleEndian(static_cast<std::uint32_t>(content.size()));
}

Keys keysOf(const std::string& content) {
  Keys keys;
  if (!content.starts_with(kPrefix)) return keys;
  constexpr const char* kSpace = " \t\n\v\f\r";
  std::size_t at = std::strlen(kPrefix);
  while (at <= content.size()) {
    const std::size_t comma = std::min(content.find(',', at), content.size());
    const std::string item = content.substr(at, comma - at);
    const std::size_t first = item.find_first_not_of(kSpace);
    if (first != std::string::npos) {
      keys.insert(item.substr(first, item.find_last_not_of(kSpace) - first + 1));
    }
    at = comma + 1;
  }
  return keys;
}

Keys load(const std::string& bytes) {
  require(::ftruncate(record, 0) == 0);
  require(::pwrite(record, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  Keys keys;
  bootforge::loadRunOnceRecord(keys);
  return keys;
}

void checkRecord(const std::string& bytes) {
  for (const std::string& key : load(bytes)) {
    require(!key.empty() && key.find(',') == std::string::npos);
  }
}

void checkStream(const std::string& stream) {
  const std::optional<std::string> content = inflated(stream);
  const Keys keys = load(gzipOf(stream, content.value_or("")));
  require(keys == (content ? keysOf(*content) : Keys()));
}

/// What is saved is loaded again.
void checkSaved(const Keys& keys) {
  try {
    bootforge::saveRunOnceRecord(keys);
  } catch (const bootforge::FileError&) {
    // The folder of the record cannot be synced here.
  }
  Keys again;
  bootforge::loadRunOnceRecord(again);
  require(again == keys);
}

void checkContent(const std::string& text) {
  const std::string content = kPrefix + text;
  require(load(gzipOf(deflated(content), content)) == keysOf(content));
  checkSaved(keysOf(content));
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  if (std::strcmp(path, bootforge::kRunOnceRecord) == 0) {
    const std::string name = "/proc/self/fd/" + std::to_string(record);
    return __real_open(name.c_str(), flags);
  }
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __real_open(path, flags, mode);
}

// The new record takes the old one's place at once.
int __wrap_mkostemp(char* pattern, int flags);
int __wrap_mkostemp(char*, int flags) {
  const std::string name = "/proc/self/fd/" + std::to_string(record);
  return __real_open(name.c_str(), flags | O_RDWR | O_TRUNC);
}

int __wrap_rename(const char* from, const char* to);
int __wrap_rename(const char*, const char*) { return 0; }

int __wrap_unlink(const char* path);
int __wrap_unlink(const char*) { return 0; }

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (record == -1) record = ::memfd_create("record", MFD_CLOEXEC);
  if (size == 0) return 0;
  const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (data[0] == 'r') checkRecord(rest);
  if (data[0] == 's') checkStream(rest);
  if (data[0] == 't') checkContent(rest);
  return 0;
}

}  // extern "C"
