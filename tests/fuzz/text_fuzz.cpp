// Any bytes as a text to be shown, compared with another reader of UTF-8.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/text.h"
#include "util/utf8.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

/// A character as UTF-8.
std::string encoded(char32_t code) {
  const auto tail = [code](unsigned shift) {
    return static_cast<char>(0x80U | ((code >> shift) & 0x3FU));
  };
  if (code < 0x80) return {static_cast<char>(code)};
  if (code < 0x800) return {static_cast<char>(0xC0U | (code >> 6U)), tail(0)};
  if (code < 0x10000) return {static_cast<char>(0xE0U | (code >> 12U)), tail(6), tail(0)};
  return {static_cast<char>(0xF0U | (code >> 18U)), tail(12), tail(6), tail(0)};
}

bool isCharacter(char32_t code) { return code < 0x110000 && (code < 0xD800 || code > 0xDFFF); }

/// Goes through a text once; gives its characters.
std::vector<char32_t> checkCharacters(const std::string& text) {
  std::vector<char32_t> characters;
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    require(bootforge::charactersBefore(text, at) == characters.size());
    const bootforge::Utf8Character character = bootforge::firstCharacter(text.substr(at));
    require(character.length > 0 && at + character.length <= text.size());
    if (character.valid) {
      require(isCharacter(character.code));
      require(encoded(character.code) == text.substr(at, character.length));
    } else {
      require(character.code == U'\uFFFD');
    }
    shown += encoded(character.code);
    characters.push_back(character.code);
    at += character.length;
  }
  require(bootforge::validUtf8(text) == shown && bootforge::validUtf8(shown) == shown);
  require(bootforge::displayWidth(shown) <= 2 * characters.size());
  return characters;
}

bool isControl(char32_t code) { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

void checkPrintable(const std::string& text, const std::vector<char32_t>& characters) {
  std::string expected;
  for (const char32_t code : characters) {
    constexpr const char* kDigits = "0123456789abcdef";
    expected += isControl(code) ? std::string("\\x") + kDigits[code >> 4U] + kDigits[code & 0xFU]
                                : encoded(code);
  }
  require(bootforge::printable(text) == expected);
}

void checkControls(const std::string& text) {
  const std::string shown = host_linux::withoutControls(text);
  for (std::string rest = shown; !rest.empty();) {
    const bootforge::Utf8Character character = bootforge::firstCharacter(rest);
    require(!character.valid || !isControl(character.code) || character.code == '\t' ||
            character.code == '\n');
    rest.erase(0, character.length);
  }
  require(host_linux::withoutControls(shown) == shown);
}

void checkCut(const std::string& text, std::size_t most) {
  const std::string cut = host_linux::cutTo(text, most);
  if (text.size() <= most) return require(cut == text);
  require(cut.size() <= most && cut.ends_with("..."));
  const std::string head = cut.substr(0, cut.size() - 3);
  require(text.starts_with(head));
  // No character is divided where all of them are good.
  if (bootforge::validUtf8(text) == text) require(bootforge::validUtf8(head) == head);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Each character is counted from the beginning again.
  constexpr std::size_t kMost = 256;
  const std::string text(reinterpret_cast<const char*>(data), std::min(size, kMost));
  checkPrintable(text, checkCharacters(text));
  checkControls(text);
  for (std::size_t most = 3; most < std::min<std::size_t>(text.size() + 2, 40); ++most) {
    checkCut(text, most);
  }
  return 0;
}
