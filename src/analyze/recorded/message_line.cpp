#include "analyze/recorded/message_line.h"

#include <cstddef>

namespace bootforge::analyze {
namespace {

constexpr std::string_view kProgram = "bootforge";
constexpr std::string_view kDigits = "0123456789";

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// Whether a text begins as a pattern says: 9 = a digit, _ = a digit or a blank, a = a letter.
bool looksLike(std::string_view text, std::string_view pattern) {
  if (text.size() < pattern.size()) return false;
  for (std::size_t index = 0; index < pattern.size(); ++index) {
    const char c = text[index];
    switch (pattern[index]) {
      case '9':
        if (!isDigit(c)) return false;
        break;
      case '_':
        if (!isDigit(c) && c != ' ') return false;
        break;
      case 'a':
        if ((c < 'a' || c > 'z') && (c < 'A' || c > 'Z')) return false;
        break;
      default:
        if (c != pattern[index]) return false;
    }
  }
  return true;
}

std::string_view trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

/// The time stamp in what stands before the program's name.
std::string_view timeIn(std::string_view prefix) {
  prefix = trimmed(prefix);
  if (prefix.starts_with('<')) {  // a priority
    const std::size_t end = prefix.find('>');
    if (end != std::string_view::npos) prefix.remove_prefix(end + 1);
    prefix = trimmed(prefix);
  }
  if (looksLike(prefix, "9999-99-99T99:99:99")) return prefix.substr(0, prefix.find(' '));
  if (looksLike(prefix, "9999-99-99 99:99:99")) return prefix.substr(0, prefix.find(' ', 11));
  if (looksLike(prefix, "aaa _9 99:99:99")) {
    // Some write fractions or the year behind it.
    std::size_t end = 15;
    while (end < prefix.size() && (isDigit(prefix[end]) || prefix[end] == '.')) ++end;
    return prefix.substr(0, end);
  }
  const std::size_t open = prefix.find('[');
  const std::size_t close = prefix.find(']', open);
  if (open != std::string_view::npos && close != std::string_view::npos) {
    return trimmed(prefix.substr(open + 1, close - open - 1));
  }
  if (prefix.ends_with(';')) {  // a raw record: priority, number, microseconds, flags
    for (int field = 0; field < 2; ++field) {
      const std::size_t comma = prefix.find(',');
      if (comma == std::string_view::npos) return {};
      prefix.remove_prefix(comma + 1);
    }
    return prefix.substr(0, prefix.find_first_not_of(kDigits));
  }
  return {};
}

}  // namespace

std::optional<MessageLine> readMessageLine(std::string_view line) {
  for (std::size_t place = line.find(kProgram); place != std::string_view::npos;
       place = line.find(kProgram, place + 1)) {
    constexpr std::string_view kMayStandBefore = " ];>\t";
    if (place > 0 && kMayStandBefore.find(line[place - 1]) == std::string_view::npos) continue;
    MessageLine message;
    std::string_view rest = line.substr(place + kProgram.size());
    if (rest.starts_with('[')) {
      const std::size_t end = rest.find_first_not_of(kDigits, 1);
      if (end == 1 || end == std::string_view::npos || rest[end] != ']') continue;
      message.process = rest.substr(1, end - 1);
      rest.remove_prefix(end + 1);
    }
    if (!rest.starts_with(": ")) continue;
    message.text = rest.substr(2);
    message.time = timeIn(line.substr(0, place));
    return message;
  }
  return std::nullopt;
}

std::string withoutColours(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  constexpr std::string_view kEscape = "\x1B[";
  std::string result;
  for (;;) {
    const std::size_t escape = line.find(kEscape);
    result += line.substr(0, escape);
    if (escape == std::string_view::npos) return result;
    const std::size_t end = line.find_first_not_of("0123456789;", escape + kEscape.size());
    if (end == std::string_view::npos) return result;
    line.remove_prefix(end + 1);
  }
}

}  // namespace bootforge::analyze
