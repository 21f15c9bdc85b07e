#include "platform/linux/text.h"

namespace host_linux {
namespace {

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80; }

void appendEscaped(std::string& result, char c) {
  constexpr const char* kDigits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  result += "\\x";
  result += kDigits[byte >> 4U];
  result += kDigits[byte & 0xfU];
}

}  // namespace

std::string withoutControls(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool isAscii = (byte < 0x20 && byte != '\t' && byte != '\n') || byte == 0x7f;
    // The upper controls, U+0080 to U+009F, among them a terminal's one-character CSI.
    const bool isUpper = byte == 0xc2 && i + 1 < text.size() &&
                         static_cast<unsigned char>(text[i + 1]) < 0xa0 &&
                         isContinuation(text[i + 1]);
    if (isUpper) appendEscaped(result, text[i++]);
    if (isAscii || isUpper) {
      appendEscaped(result, text[i]);
    } else {
      result += text[i];
    }
  }
  return result;
}

std::string cutTo(std::string_view text, std::size_t most) {
  if (text.size() <= most) return std::string(text);
  constexpr std::string_view kMark = "...";
  std::size_t end = most - kMark.size();
  // A character has at most three continuation bytes; more of them are no UTF-8 and cut anywhere.
  for (int back = 0; back < 3 && end > 0 && isContinuation(text[end]); ++back) --end;
  if (isContinuation(text[end])) end = most - kMark.size();
  return std::string(text.substr(0, end)).append(kMark);
}

}  // namespace host_linux
