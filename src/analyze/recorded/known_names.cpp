#include "analyze/recorded/known_names.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
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

/// How many letters have to be added, left out or changed to make one of the other; `limit` + 1
/// when more than `limit`.
std::size_t distanceBetween(std::string_view one, std::string_view other, std::size_t limit) {
  if (std::max(one.size(), other.size()) - std::min(one.size(), other.size()) > limit) {
    return limit + 1;
  }
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return std::min(row.back(), limit + 1);
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

std::vector<std::string> nearestNames(std::string_view name,
                                      const std::vector<std::string>& names) {
  const std::size_t limit = std::max<std::size_t>(1, std::min<std::size_t>(name.size() / 3, 8));
  std::vector<std::pair<std::size_t, std::string>> near;
  for (const std::string& candidate : names) {
    const std::size_t distance = distanceBetween(name, candidate, limit);
    if (distance <= limit) near.emplace_back(distance, candidate);
  }
  std::sort(near.begin(), near.end());
  near.erase(std::unique(near.begin(), near.end()), near.end());
  constexpr std::size_t kMost = 3;
  if (near.size() > kMost) near.resize(kMost);
  std::vector<std::string> result;
  for (auto& [distance, candidate] : near) result.push_back(std::move(candidate));
  return result;
}

}  // namespace bootforge::analyze
