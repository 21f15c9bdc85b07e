// Files that may be compressed.
#pragma once

#include <string>

namespace bootforge::analyze {

struct PlainText {
  std::string text;
  bool cut = false;  // compressed data that end early or are damaged: `text` is what came before
};

/// The content of a file as it is or, where it begins as gzip data do, what is compressed in it, in
/// one member or several. No more than 1 GiB is unpacked; what is longer counts as cut.
PlainText plainText(std::string content);

}  // namespace bootforge::analyze
