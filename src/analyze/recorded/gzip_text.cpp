#include "analyze/recorded/gzip_text.h"

#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "util/exception.h"

namespace bootforge::analyze {
namespace {

constexpr std::string_view kMagic = "\x1F\x8B";
constexpr std::size_t kChunk = std::size_t{1} << 18U;

/// zlib's stream for gzip members.
class Inflater {
 public:
  Inflater() {
    constexpr int kLargestWindowWithGzipHeader = 15 + 16;
    if (inflateInit2(&stream_, kLargestWindowWithGzipHeader) != Z_OK) {
      throw Exception("no memory to decompress");
    }
  }
  ~Inflater() { inflateEnd(&stream_); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  z_stream& stream() { return stream_; }

 private:
  z_stream stream_{};
};

}  // namespace

PlainText plainText(std::string content, std::size_t most) {
  if (!content.starts_with(kMagic)) return {std::move(content), false};
  PlainText result;
  Inflater inflater;
  z_stream& stream = inflater.stream();
  std::size_t given = 0;
  for (;;) {
    if (stream.avail_in == 0) {
      const std::size_t piece = std::min(content.size() - given, kChunk);
      stream.next_in = reinterpret_cast<Bytef*>(content.data() + given);
      stream.avail_in = static_cast<uInt>(piece);
      given += piece;
    }
    const std::size_t used = result.text.size();
    const std::size_t room = std::min(kChunk, most - used + 1);
    result.text.resize(used + room);
    stream.next_out = reinterpret_cast<Bytef*>(result.text.data() + used);
    stream.avail_out = static_cast<uInt>(room);
    const int outcome = inflate(&stream, Z_NO_FLUSH);
    result.text.resize(used + room - stream.avail_out);
    if (result.text.size() > most) {
      result.text.resize(most);
      result.cut = true;
      return result;
    }
    if (outcome == Z_STREAM_END) {
      const std::size_t offset = given - stream.avail_in;
      // Zero bytes may fill up a block behind the last member; anything else there is damage.
      const std::string_view rest = std::string_view(content).substr(offset);
      if (rest.find_first_not_of('\0') == std::string_view::npos) return result;
      if (!rest.starts_with(kMagic) || inflateReset(&stream) != Z_OK) {
        result.cut = true;
        return result;
      }
    } else if (outcome != Z_OK) {  // Z_BUF_ERROR where the data end early
      result.cut = true;
      return result;
    }
  }
}

}  // namespace bootforge::analyze
