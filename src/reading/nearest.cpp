#include "reading/nearest.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <utility>

namespace bootforge {
namespace {

constexpr std::size_t kMostNames = 3;

std::string folded(std::string_view name) {
  std::string text(name);
  for (char& c : text) {
    const auto byte = static_cast<unsigned char>(c);
    c = c == '_' || c == ' ' ? '-' : static_cast<char>(byte < 0x80 ? std::tolower(byte) : byte);
  }
  return text;
}

}  // namespace

std::size_t editDistance(std::string_view one, std::string_view other, std::size_t most) {
  const std::size_t width = other.size();
  if (std::max(one.size(), width) - std::min(one.size(), width) > most) return most + 1;
  std::vector<std::size_t> before(width + 1);
  std::vector<std::size_t> last(width + 1);
  std::vector<std::size_t> row(width + 1);
  for (std::size_t j = 0; j <= width; ++j) row[j] = j;
  for (std::size_t i = 1; i <= one.size(); ++i) {
    std::swap(before, last);
    std::swap(last, row);
    row[0] = i;
    std::size_t least = row[0];
    for (std::size_t j = 1; j <= width; ++j) {
      const std::size_t exchange = last[j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, exchange});
      if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
      least = std::min(least, row[j]);
    }
    if (least > most) return most + 1;
  }
  return std::min(row[width], most + 1);
}

std::vector<std::string_view> nearestNames(std::string_view name,
                                           const std::vector<std::string_view>& known) {
  const std::size_t most = std::max<std::size_t>(1, name.size() / 3);
  const std::string wanted = folded(name);
  std::vector<std::pair<std::size_t, std::string_view>> found;
  for (const std::string_view candidate : known) {
    if (candidate == name) continue;
    const std::size_t distance = editDistance(wanted, folded(candidate), most);
    if (distance <= most) found.emplace_back(distance, candidate);
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < found.size() && i < kMostNames; ++i) names.push_back(found[i].second);
  return names;
}

}  // namespace bootforge
