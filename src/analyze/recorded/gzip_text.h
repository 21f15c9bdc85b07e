// Files that may be compressed.
#pragma once

#include <cstddef>
#include <string>

namespace bootforge::analyze {

inline constexpr std::size_t kMostUnpacked = std::size_t{1} << 30U;  // bytes

struct PlainText {
  std::string text;
  bool cut = false;  // compressed data that end early or are damaged: `text` is what came before
};

/// The content of a file as it is or, where it begins as gzip data do, what is compressed in it, in
/// one member or several. No more than `most` bytes are unpacked; what is longer counts as cut.
PlainText plainText(std::string content, std::size_t most = kMostUnpacked);

}  // namespace bootforge::analyze
