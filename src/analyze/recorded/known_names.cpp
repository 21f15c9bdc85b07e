#include "analyze/recorded/known_names.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

bool isControl(unsigned char byte) { return byte < 0x20 || byte == 0x7F; }

template <typename IsEscaped>
std::string escaped(std::string_view name, const char* format, IsEscaped isEscaped) {
  std::string result;
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    if (isEscaped(byte)) {
      char text[8];
      std::snprintf(text, sizeof text, format, static_cast<unsigned>(byte));
      result += text;
    } else {
      result += character;
    }
  }
  return result;
}

}  // namespace

void KnownNames::add(const std::string& name) {
  if (++counts_[name] > 1) return;
  const bool isUsual = std::all_of(name.begin(), name.end(), [](char character) {
    return character >= 0x20 && character < 0x7F && character != '\\';
  });
  if (isUsual) return;
  const auto addForm = [&](std::string form) {
    if (form != name) forms_.try_emplace(std::move(form), name);
  };
  const auto isUnusualToKernel = [](unsigned char byte) {
    return byte < 0x20 || byte >= 0x7F || byte == '\\';
  };
  addForm(escaped(name, "\\x%02x", isControl));
  addForm(escaped(name, "\\x%02X", isControl));
  addForm(escaped(name, "#%03o", isControl));  // syslog daemons
  addForm(escaped(name, "\\x%02x", isUnusualToKernel));
  addForm(printable(name));
}

const std::string* KnownNames::find(std::string_view shown) const {
  const std::string key(shown);
  const auto known = counts_.find(key);
  if (known != counts_.end()) return &known->first;
  const auto form = forms_.find(key);
  return form == forms_.end() ? nullptr : &form->second;
}

std::size_t KnownNames::count(const std::string& name) const {
  const auto known = counts_.find(name);
  return known == counts_.end() ? 0 : known->second;
}

}  // namespace bootforge::analyze
