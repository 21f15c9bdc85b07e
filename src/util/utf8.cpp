#include "util/utf8.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace bootforge {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

struct Range {
  char32_t first;
  char32_t last;
};

// The blocks of marks that take no column, and of characters that take two; ascending.
constexpr Range kZeroWidth[] = {
    {0x0300, 0x036F}, {0x0483, 0x0489},   {0x0591, 0x05BD},   {0x0610, 0x061A},   {0x064B, 0x065F},
    {0x06D6, 0x06DC}, {0x0711, 0x0711},   {0x0730, 0x074A},   {0x0900, 0x0902},   {0x093C, 0x093C},
    {0x0941, 0x0948}, {0x094D, 0x094D},   {0x0E31, 0x0E31},   {0x0E34, 0x0E3A},   {0x0E47, 0x0E4E},
    {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF},   {0x200B, 0x200F},   {0x202A, 0x202E},   {0x2060, 0x2064},
    {0x20D0, 0x20FF}, {0x302A, 0x302D},   {0x3099, 0x309A},   {0xFE00, 0xFE0F},   {0xFE20, 0xFE2F},
    {0xFEFF, 0xFEFF}, {0x1D167, 0x1D169}, {0xE0001, 0xE007F}, {0xE0100, 0xE01EF},
};
constexpr Range kWide[] = {
    {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2E80, 0x303E},   {0x3041, 0x33FF},
    {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xA960, 0xA97F},
    {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
    {0xFFE0, 0xFFE6},   {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF},
    {0x20000, 0x2FFFD}, {0x30000, 0x3FFFD},
};

template <std::size_t count>
bool isIn(const Range (&ranges)[count], char32_t code) {
  const auto* const range = std::upper_bound(
      std::begin(ranges), std::end(ranges), code,
      [](char32_t value, const Range& candidate) { return value < candidate.first; });
  return range != std::begin(ranges) && code <= std::prev(range)->last;
}

bool isControl(char32_t code) { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

std::size_t columnsOf(char32_t code) {
  if (code < 0x300) return 1;
  if (isIn(kZeroWidth, code)) return 0;
  return isIn(kWide, code) ? 2 : 1;
}

template <typename Visit>
void forEachCharacter(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const Utf8Character character = firstCharacter(text);
    visit(character, text.substr(0, character.length));
    text.remove_prefix(character.length);
  }
}

std::string convert(std::string_view text, bool escapeControls) {
  std::string result;
  result.reserve(text.size());
  forEachCharacter(text, [&](const Utf8Character& character, std::string_view bytes) {
    if (!character.valid) {
      result += kReplacement;
    } else if (escapeControls && isControl(character.code)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(character.code));
      result += escape;
    } else {
      result += bytes;
    }
  });
  return result;
}

}  // namespace

Utf8Character firstCharacter(std::string_view text) {
  if (text.empty()) return {};
  const auto byteAt = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byteAt(0);
  if (lead < 0x80) return {lead, 1, true};
  // How many bytes follow the first, and between which bounds the first of them must lie: this
  // rules out what is longer than it need be, surrogates and what is beyond U+10FFFF.
  std::size_t following = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    following = 1;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    following = 2;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    following = 3;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return {U'\uFFFD', 1, false};
  }
  char32_t code = lead & (0x3FU >> following);
  for (std::size_t index = 1; index <= following; ++index) {
    if (index >= text.size() || byteAt(index) < low || byteAt(index) > high) {
      return {U'\uFFFD', index, false};
    }
    code = (code << 6U) | (byteAt(index) & 0x3FU);
    low = 0x80;
    high = 0xBF;
  }
  return {code, following + 1, true};
}

std::string validUtf8(std::string_view text) { return convert(text, false); }

std::string printable(std::string_view text) { return convert(text, true); }

std::size_t charactersBefore(std::string_view text, std::size_t byte) {
  std::size_t offset = 0;
  std::size_t count = 0;
  while (offset < byte && offset < text.size()) {
    offset += firstCharacter(text.substr(offset)).length;
    ++count;
  }
  return count;
}

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  forEachCharacter(text, [&](const Utf8Character& character, std::string_view /*bytes*/) {
    width += columnsOf(character.code);
  });
  return width;
}

}  // namespace bootforge
