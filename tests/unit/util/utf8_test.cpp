#include "util/utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace bootforge {
namespace {

using namespace std::string_literals;

TEST(Utf8, WholeTextStaysAsItIs) {
  for (const std::string text : {"", "plain", "Zürich", "日本", "\xF0\x9F\x9A\x80", "a\nb"}) {
    EXPECT_EQ(validUtf8(text), text);
  }
}

TEST(Utf8, EachBrokenRunBecomesOneReplacementCharacter) {
  EXPECT_EQ(validUtf8("a\xFF"
                      "b"),
            "a\uFFFDb");
  EXPECT_EQ(validUtf8("\x80\x80"), "\uFFFD\uFFFD");
  EXPECT_EQ(validUtf8("\xE6\x97"), "\uFFFD") << "cut inside a character";
  EXPECT_EQ(validUtf8("\xE6\x97x"), "\uFFFDx") << "what follows is not swallowed";
  EXPECT_EQ(validUtf8("\xC0\xAF"), "\uFFFD\uFFFD") << "longer than it need be";
  EXPECT_EQ(validUtf8("\xE0\x80\xAF"), "\uFFFD\uFFFD\uFFFD") << "longer than it need be";
  EXPECT_EQ(validUtf8("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD") << "half of a surrogate pair";
  EXPECT_EQ(validUtf8("\xF4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD") << "beyond the last one";
}

TEST(Utf8, FirstAndLastCharacterOfEachLengthAreRead) {
  struct Case {
    std::string_view text;
    char32_t code;
  };
  for (const Case& each :
       {Case{"\x01", 0x1}, Case{"\x7F", 0x7F}, Case{"\xC2\x80", 0x80}, Case{"\xDF\xBF", 0x7FF},
        Case{"\xE0\xA0\x80", 0x800}, Case{"\xED\x9F\xBF", 0xD7FF}, Case{"\xEE\x80\x80", 0xE000},
        Case{"\xEF\xBF\xBF", 0xFFFF}, Case{"\xF0\x90\x80\x80", 0x10000},
        Case{"\xF4\x8F\xBF\xBF", 0x10FFFF}}) {
    const Utf8Character character = firstCharacter(each.text);
    EXPECT_TRUE(character.valid) << each.text;
    EXPECT_EQ(character.code, each.code);
    EXPECT_EQ(character.length, each.text.size());
  }
  EXPECT_EQ(firstCharacter("").length, 0U);
}

TEST(Utf8, ControlCharactersAreShownAndNotSent) {
  EXPECT_EQ(printable("a\tb\nc"), "a\\x09b\\x0ac");
  EXPECT_EQ(printable("\x1B[2J"), "\\x1b[2J");
  EXPECT_EQ(printable("\x7F"), "\\x7f");
  EXPECT_EQ(printable("\xC2\x9B"
                      "31m"),
            "\\x9b31m")
      << "the one-character form of an escape";
  EXPECT_EQ(printable("nul\0byte"s), "nul\\x00byte");
  EXPECT_EQ(printable("ü\xFF"), "ü\uFFFD");
}

TEST(Utf8, CharactersAreCountedUpToAByte) {
  const std::string text = "aü日\xFFz";
  EXPECT_EQ(charactersBefore(text, 0), 0U);
  EXPECT_EQ(charactersBefore(text, 1), 1U);
  EXPECT_EQ(charactersBefore(text, 3), 2U);
  EXPECT_EQ(charactersBefore(text, 6), 3U);
  EXPECT_EQ(charactersBefore(text, 7), 4U);
  EXPECT_EQ(charactersBefore(text, 100), 5U);
}

TEST(Utf8, WidthIsThatOfATerminal) {
  EXPECT_EQ(displayWidth(""), 0U);
  EXPECT_EQ(displayWidth("plain"), 5U);
  EXPECT_EQ(displayWidth("Zürich"), 6U);
  EXPECT_EQ(displayWidth("u\xCC\x88"), 1U) << "a mark that combines";
  EXPECT_EQ(displayWidth("日本"), 4U);
  EXPECT_EQ(displayWidth("\xF0\x9F\x9A\x80"), 2U);
  EXPECT_EQ(displayWidth("\xFF"), 1U);
  EXPECT_EQ(displayWidth("\u02FF\u0300\u036F\u0370"), 2U) << "the bounds of a block of marks";
  EXPECT_EQ(displayWidth("\u10FF\u1100\u115F\u1160"), 6U) << "the bounds of a block of wide ones";
}

}  // namespace
}  // namespace bootforge
