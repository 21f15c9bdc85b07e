// Text for people: units, columns, bars, colours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/recorded/answer.h"

namespace bootforge::analyze {

/// A duration in the unit that a person would choose: "0", "812 µs", "12.3 ms", "4.56 s",
/// "12 min 3 s".
std::string duration(std::int64_t microseconds);

/// The same with its sign, "+" too.
std::string signedDuration(std::int64_t microseconds);

/// "2024-03-05 07:04:09 UTC" for microseconds since 1970.
std::string calendarTime(std::int64_t microseconds);

/// "1 plugin", "3 plugins".
std::string counted(std::size_t count, std::string_view noun);

enum class Colour { Red, Green, Yellow, Bold, Faint };
/// The text in a colour, where the style has colours.
std::string coloured(std::string_view text, Colour colour, const TextStyle& style);

/// The printable form of a name, cut with "…" where it takes more than `width` columns.
std::string fitted(std::string_view name, std::size_t width);

/// Rows of cells in aligned columns. Cells may be coloured; the last column is not padded.
class TextTable {
 public:
  /// A heading for each column; one that begins with ">" is set to the right.
  explicit TextTable(const std::vector<std::string>& headings);
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  /// How many columns of the terminal all but the last column take.
  std::size_t widthBeforeLast() const;
  std::string text(const TextStyle& style) const;

 private:
  std::vector<std::size_t> widths() const;

  std::vector<bool> right_;
  std::vector<std::vector<std::string>> rows_;  // the headings first
};

}  // namespace bootforge::analyze
