// Gzip by way of zlib alone, so that what the program reads and writes is checked by other means
// than its own.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

namespace bootforge::test {

inline constexpr int kGzipWindow = 15 + 16;  // zlib's way to ask for gzip's header and trailer

/// Window bits below 0 give the bare deflate stream.
inline std::string deflated(std::string text, int windowBits) {
  z_stream stream{};
  EXPECT_EQ(
      deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY),
      Z_OK);
  std::string result(deflateBound(&stream, text.size()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(text.data());
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(result.data());
  stream.avail_out = static_cast<uInt>(result.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  result.resize(stream.total_out);
  deflateEnd(&stream);
  return result;
}

inline std::string gzipped(const std::string& text) { return deflated(text, kGzipWindow); }

/// The content of one whole gzip stream; the running test fails when it is damaged or anything
/// follows it.
inline std::string gunzipped(std::string bytes) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, kGzipWindow), Z_OK);
  stream.next_in = reinterpret_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  std::string result;
  int status = Z_OK;
  while (status == Z_OK) {
    char buffer[4096];
    stream.next_out = reinterpret_cast<Bytef*>(buffer);
    stream.avail_out = sizeof buffer;
    status = inflate(&stream, Z_NO_FLUSH);
    result.append(buffer, sizeof buffer - stream.avail_out);
  }
  EXPECT_EQ(status, Z_STREAM_END);
  EXPECT_EQ(stream.avail_in, 0U);
  inflateEnd(&stream);
  return result;
}

}  // namespace bootforge::test
