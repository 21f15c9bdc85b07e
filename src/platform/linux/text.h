// Texts made fit for the places that take them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host_linux {

/// The text with every control character but tabs and newlines as `\xNN`, byte by byte, so that
/// nothing in it commands a terminal or looks like another message.
std::string withoutControls(std::string_view text);

/// The text as it is when it has at most `most` bytes; else its beginning, cut between characters
/// of UTF-8, and "...": together at most `most` bytes, of which there must be at least 3.
std::string cutTo(std::string_view text, std::size_t most);

}  // namespace host_linux
