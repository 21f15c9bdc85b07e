#include "analyze/recorded/text_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

/// The columns of a cell, without the sequences that colour it.
std::size_t widthOf(std::string_view cell) {
  std::size_t width = 0;
  for (;;) {
    const std::size_t escape = cell.find('\x1B');
    width += displayWidth(cell.substr(0, escape));
    if (escape == std::string_view::npos) return width;
    cell.remove_prefix(std::min(cell.find('m', escape), cell.size() - 1) + 1);
  }
}

}  // namespace

std::string duration(std::int64_t microseconds) {
  if (microseconds < 0) return "-" + duration(-microseconds);
  if (microseconds == 0) return "0";
  if (microseconds < 1'000) return fmt::format("{} µs", microseconds);
  const auto amount = [](double value, const char* unit) {
    if (value < 9.995) return fmt::format("{:.2f} {}", value, unit);
    if (value < 99.95) return fmt::format("{:.1f} {}", value, unit);
    return fmt::format("{:.0f} {}", value, unit);
  };
  const auto value = static_cast<double>(microseconds);
  if (microseconds < 999'500) return amount(value / 1e3, "ms");
  if (microseconds < 99'950'000) return amount(value / 1e6, "s");
  const std::int64_t seconds =
      microseconds / 1'000'000 + (microseconds % 1'000'000 >= 500'000 ? 1 : 0);
  if (seconds < 3'600) return fmt::format("{} min {} s", seconds / 60, seconds % 60);
  return fmt::format("{} h {} min", seconds / 3'600, seconds % 3'600 / 60);
}

std::string signedDuration(std::int64_t microseconds) {
  return (microseconds > 0 ? "+" : "") + duration(microseconds);
}

std::string calendarTime(std::int64_t microseconds) {
  using namespace std::chrono;
  const sys_seconds moment =
      floor<seconds>(sys_time<std::chrono::microseconds>(std::chrono::microseconds(microseconds)));
  const sys_days day = floor<days>(moment);
  const year_month_day date(day);
  const hh_mm_ss time(moment - day);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} UTC", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count());
}

std::string counted(std::size_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string coloured(std::string_view text, Colour colour, const TextStyle& style) {
  if (!style.colours || text.empty()) return std::string(text);
  static constexpr const char* kCodes[] = {"31", "32", "33", "1", "2"};
  return fmt::format("\x1B[{}m{}\x1B[0m", kCodes[static_cast<std::size_t>(colour)], text);
}

std::string fitted(std::string_view name, std::size_t width) {
  std::string text = printable(name);
  if (displayWidth(text) <= width) return text;
  std::string cut;
  std::size_t used = 1;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view character = rest.substr(0, firstCharacter(rest).length);
    used += displayWidth(character);
    if (used > width) break;
    cut += character;
    rest.remove_prefix(character.size());
  }
  return cut + "…";
}

TextTable::TextTable(const std::vector<std::string>& headings) {
  std::vector<std::string> cells;
  for (const std::string& heading : headings) {
    right_.push_back(heading.starts_with('>'));
    cells.push_back(heading.substr(right_.back() ? 1 : 0));
  }
  rows_.push_back(std::move(cells));
}

std::vector<std::size_t> TextTable::widths() const {
  std::vector<std::size_t> result(right_.size());
  for (const auto& row : rows_) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      result[column] = std::max(result[column], widthOf(row[column]));
    }
  }
  return result;
}

std::size_t TextTable::widthBeforeLast() const {
  std::size_t sum = 0;
  const std::vector<std::size_t> columns = widths();
  for (std::size_t column = 0; column + 1 < columns.size(); ++column) sum += columns[column] + 2;
  return sum;
}

std::string TextTable::text(const TextStyle& style) const {
  std::string result;
  const std::vector<std::size_t> columns = widths();
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::string padding(columns[column] - widthOf(row[column]), ' ');
      const std::string cell =
          &row == &rows_.front() ? coloured(row[column], Colour::Faint, style) : row[column];
      line += (column == 0 ? "" : "  ") + (right_[column] ? padding + cell : cell + padding);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    result += line + '\n';
  }
  return result;
}

}  // namespace bootforge::analyze
