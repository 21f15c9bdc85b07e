// Places in a text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace bootforge {

/// Line and column count from 1. A column is a character (a Unicode code point), with all bytes
/// behind its first that look as if they continued it.
struct Place {
  std::size_t line = 1;
  std::size_t column = 1;
};

/// The place of the byte at that offset, or of the end. Walks the text from its beginning: for who
/// has something to say, not for every value.
inline Place placeOf(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const std::size_t newline = before.rfind('\n');
  const std::string_view line = before.substr(newline == std::string_view::npos ? 0 : newline + 1);
  const auto isContinuation = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
  return {1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n')),
          1 + line.size() -
              static_cast<std::size_t>(std::count_if(line.begin(), line.end(), isContinuation))};
}

}  // namespace bootforge
