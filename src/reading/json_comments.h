// Comments in JSON texts: "//" to the end of the line and "/* */". A leaf, because descriptions of
// plugins and command files have them alike.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace bootforge {
namespace json_comments {

/// Where the next two characters are that begin a comment, or would outside a string.
inline std::size_t findMark(const std::string& text, std::size_t from) {
  std::size_t at = text.find('/', from);
  while (at != std::string::npos && text[at + 1] != '/' && text[at + 1] != '*') {
    at = text.find('/', at + 1);
  }
  return at;
}

/// The place behind the string that begins with the quote at `at`.
inline std::size_t endOfString(const std::string& text, std::size_t at) {
  for (++at; at < text.size() && text[at] != '"'; ++at) {
    if (text[at] == '\\') ++at;
  }
  return at + 1;
}

inline std::size_t endOfComment(const std::string& text, std::size_t at) {
  if (text[at + 1] == '/') return std::min(text.find('\n', at), text.size());
  const std::size_t end = text.find("*/", at + 2);
  return end == std::string::npos ? text.size() : end + 2;
}

}  // namespace json_comments

/// Turns comments into blanks; every other character stays where it is. The parser could skip them,
/// but it does not see the end of one that ends in two asterisks and a slash, and it looks at
/// comments behind the value too. Nothing is looked at behind the last mark of a comment, and
/// nothing twice.
inline void blankComments(std::string& text) {
  std::size_t mark = json_comments::findMark(text, 0);
  std::size_t quote = text.find('"');
  while (mark != std::string::npos) {
    const bool isString = quote < mark;
    const std::size_t end = isString ? json_comments::endOfString(text, quote)
                                     : json_comments::endOfComment(text, mark);
    if (!isString) text.replace(mark, end - mark, end - mark, ' ');
    if (mark < end) mark = json_comments::findMark(text, end);
    if (quote < end) quote = text.find('"', end);
  }
}

}  // namespace bootforge
