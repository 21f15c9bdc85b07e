// Text from files and names of files, which may be any bytes, made fit for people and for JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace bootforge {

/// One character of a text, or the longest run of bytes that begins one and does not end it.
struct Utf8Character {
  char32_t code = U'\uFFFD';  // the replacement character for bytes that are no UTF-8
  std::size_t length = 0;     // bytes; 0 only for an empty text
  bool valid = false;
};

/// The first character of a text.
Utf8Character firstCharacter(std::string_view text);

/// The text as UTF-8: bytes that are none become U+FFFD, one for each run that firstCharacter()
/// gives.
std::string validUtf8(std::string_view text);

/// As validUtf8(), with control characters, line breaks and tabs among them, as "\xNN": one line
/// that does nothing to a terminal.
std::string printable(std::string_view text);

/// How many characters begin before a byte of the text; bytes that are no UTF-8 count as they are
/// shown.
std::size_t charactersBefore(std::string_view text, std::size_t byte);

/// How many columns of a terminal a text takes that holds no control characters: none for marks
/// that combine, two for wide characters.
std::size_t displayWidth(std::string_view text);

}  // namespace bootforge
