#include "tools/adopt/lines.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace bootforge::adopt {
namespace {

constexpr std::size_t kContext = 3;
/// Texts that have nothing in common are shown whole: to look for more takes the square of this.
constexpr std::size_t kMostDifferences = 1000;

/// A difference: lines [from, from + count) of each of two texts.
struct Difference {
  std::size_t from[2];
  std::size_t count[2];
};

std::ptrdiff_t at(std::size_t index) { return static_cast<std::ptrdiff_t>(index); }

/// The shortest way from one text to the other by the greedy algorithm of Myers: `furthest[d]` has,
/// for each diagonal k = x - y, the furthest x that d differences reach.
class ShortestWay {
 public:
  ShortestWay(const Lines& before, const Lines& after) : before_(before), after_(after) {}

  /// The differences in the texts' order.
  std::vector<Difference> find() {
    while (!isThere_ && furthest_.size() <= kMostDifferences) step();
    if (!isThere_) return {Difference{{0, 0}, {before_.size(), after_.size()}}};
    return walkBack();
  }

 private:
  using Reach = std::vector<std::ptrdiff_t>;  // of the diagonals -d, -d + 2, ..., d

  /// Whether the best way to diagonal k with d differences ends with a line that was added.
  static bool comesFromAbove(const Reach& reach, std::ptrdiff_t d, std::ptrdiff_t k) {
    if (k == -d || k == d) return k == -d;
    return before(reach, d, k - 1) < before(reach, d, k + 1);
  }
  /// What d - 1 differences reach on a diagonal.
  static std::ptrdiff_t before(const Reach& reach, std::ptrdiff_t d, std::ptrdiff_t k) {
    return reach[static_cast<std::size_t>((k + d - 1) / 2)];
  }

  void step() {
    const std::ptrdiff_t d = at(furthest_.size());
    Reach reach(furthest_.size() + 1);
    for (std::ptrdiff_t k = -d; k <= d; k += 2) {
      std::ptrdiff_t x = 0;
      if (d > 0) {
        const Reach& last = furthest_.back();
        x = comesFromAbove(last, d, k) ? before(last, d, k + 1) : before(last, d, k - 1) + 1;
      }
      std::ptrdiff_t y = x - k;
      while (x < at(before_.size()) && y >= 0 && y < at(after_.size()) &&
             before_[static_cast<std::size_t>(x)] == after_[static_cast<std::size_t>(y)]) {
        ++x;
        ++y;
      }
      reach[static_cast<std::size_t>((k + d) / 2)] = x;
      isThere_ = isThere_ || (x >= at(before_.size()) && y >= at(after_.size()));
    }
    furthest_.push_back(std::move(reach));
  }

  std::vector<Difference> walkBack() const {
    std::vector<Difference> found;
    std::ptrdiff_t x = at(before_.size());
    std::ptrdiff_t k = x - at(after_.size());
    for (std::ptrdiff_t d = at(furthest_.size()) - 1; d > 0; --d) {
      const Reach& last = furthest_[static_cast<std::size_t>(d - 1)];
      const bool isAdded = comesFromAbove(last, d, k);
      k += isAdded ? 1 : -1;
      x = before(last, d, k);
      prepend(found, static_cast<std::size_t>(x), static_cast<std::size_t>(x - k), isAdded ? 1 : 0);
    }
    std::reverse(found.begin(), found.end());
    return found;
  }

  /// Adds a line that differs, from behind.
  static void prepend(std::vector<Difference>& found, std::size_t x, std::size_t y, int side) {
    const std::size_t place[2] = {x, y};
    Difference one{{x, y}, {0, 0}};
    one.count[side] = 1;
    if (!found.empty()) {
      Difference& next = found.back();
      const bool touches =
          next.from[side] == place[side] + 1 && next.from[1 - side] == place[1 - side];
      if (touches) {
        --next.from[side];
        ++next.count[side];
        return;
      }
    }
    found.push_back(one);
  }

  const Lines& before_;
  const Lines& after_;
  std::vector<Reach> furthest_;
  bool isThere_ = false;
};

std::vector<Difference> differencesOf(const Lines& before, const Lines& after) {
  const auto [one, other] = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
  const auto start = static_cast<std::size_t>(one - before.begin());
  const auto ends = std::mismatch(before.rbegin(), std::make_reverse_iterator(one), after.rbegin(),
                                  std::make_reverse_iterator(other));
  std::vector<Difference> found =
      ShortestWay(Lines(one, ends.first.base()), Lines(other, ends.second.base())).find();
  std::erase_if(found, [](const Difference& each) { return each.count[0] + each.count[1] == 0; });
  for (Difference& each : found) {
    each.from[0] += start;
    each.from[1] += start;
  }
  return found;
}

std::string rangeOf(std::size_t from, std::size_t count) {
  // Where nothing is, the line before it counts.
  const std::string line = std::to_string(count == 0 ? from : from + 1);
  return count == 1 ? line : line + ',' + std::to_string(count);
}

void append(std::string& text, char mark, const Lines& lines, std::size_t from, std::size_t end) {
  for (; from < end; ++from) {
    text += mark + lines[from];
    if (!lines[from].ends_with('\n')) text += "\n\\ No newline at end of file\n";
  }
}

std::size_t endOf(const Difference& each, int side) { return each.from[side] + each.count[side]; }

/// The differences [first, last) with the lines around them.
std::string hunkOf(const Lines& before, const Lines& after, const Difference* first,
                   const Difference* last) {
  const std::size_t lead = std::min(first->from[0], kContext);
  const std::size_t trail = std::min(before.size() - endOf(last[-1], 0), kContext);
  std::size_t place = first->from[0] - lead;
  std::string body;
  const std::size_t end = endOf(last[-1], 0) + trail;
  const std::string ranges =
      '-' + rangeOf(place, end - place) + " +" +
      rangeOf(first->from[1] - lead, endOf(last[-1], 1) + trail - (first->from[1] - lead));
  for (const Difference* each = first; each != last; ++each) {
    append(body, ' ', before, place, each->from[0]);
    append(body, '-', before, each->from[0], endOf(*each, 0));
    append(body, '+', after, each->from[1], endOf(*each, 1));
    place = endOf(*each, 0);
  }
  append(body, ' ', before, place, end);
  return "@@ " + ranges + " @@\n" + body;
}

/// Where some lines stand in others; nothing when nowhere or more than once.
std::optional<std::size_t> onlyPlaceOf(const Lines& some, const Lines& lines) {
  const auto found = std::search(lines.begin(), lines.end(), some.begin(), some.end());
  if (found == lines.end()) return std::nullopt;
  if (std::search(found + 1, lines.end(), some.begin(), some.end()) != lines.end()) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - lines.begin());
}

void replace(Lines& lines, std::size_t place, std::size_t count, const Lines& others) {
  const auto from = lines.begin() + at(place);
  lines.insert(lines.erase(from, from + at(count)), others.begin(), others.end());
}

}  // namespace

Lines linesOf(std::string_view text) {
  Lines lines;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
    lines.emplace_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return lines;
}

std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line;
  return text;
}

std::string changed(const std::string& before, const std::vector<Change>& changes) {
  Lines lines = linesOf(before);
  for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
    const std::size_t place = std::min(change->line, lines.size());
    replace(lines, place, std::min(change->removed.size(), lines.size() - place), change->added);
  }
  return joined(lines);
}

std::optional<std::string> takenBack(const std::string& text, const std::vector<Change>& changes) {
  Lines lines = linesOf(text);
  for (const Change& change : changes) {
    const std::optional<std::size_t> place = onlyPlaceOf(change.added, lines);
    if (!place) return std::nullopt;
    replace(lines, *place, change.added.size(), change.removed);
  }
  return joined(lines);
}

bool hasLineOf(const std::string& text, const std::vector<Change>& changes) {
  const Lines lines = linesOf(text);
  const auto contains = [](const Lines& all, const std::string& line) {
    return std::find(all.begin(), all.end(), line) != all.end();
  };
  return std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
    return std::any_of(change.added.begin(), change.added.end(), [&](const std::string& line) {
      return !contains(change.removed, line) && contains(lines, line);
    });
  });
}

bool hasRemovedLines(const std::string& text, const std::vector<Change>& changes) {
  const Lines lines = linesOf(text);
  return std::all_of(changes.begin(), changes.end(), [&](const Change& change) {
    return std::search(lines.begin(), lines.end(), change.removed.begin(), change.removed.end()) !=
               lines.end() ||
           change.removed.empty();
  });
}

std::string shownAsHunks(const std::string& before, const std::string& after) {
  const Lines old = linesOf(before);
  const Lines young = linesOf(after);
  const std::vector<Difference> differences = differencesOf(old, young);
  std::string text;
  for (std::size_t first = 0; first < differences.size();) {
    std::size_t last = first + 1;
    while (last < differences.size() &&
           differences[last].from[0] - endOf(differences[last - 1], 0) <= 2 * kContext) {
      ++last;
    }
    text += hunkOf(old, young, differences.data() + first, differences.data() + last);
    first = last;
  }
  return text;
}

}  // namespace bootforge::adopt
