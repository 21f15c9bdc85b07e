// Lines of texts, and what differs between two texts.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge::adopt {

/// Each with its newline; the last one may have none.
using Lines = std::vector<std::string>;

Lines linesOf(std::string_view text);
std::string joined(const Lines& lines);

/// Some lines in a text, other lines in their place. `added` is never empty.
struct Change {
  std::size_t line = 0;  // where in the text before, from 0
  Lines removed;
  Lines added;

  bool operator==(const Change&) const = default;
};

/// The text after some changes, which stand in the order of their lines.
std::string changed(const std::string& before, const std::vector<Change>& changes);

/// A text in which each change is taken back, wherever its lines are by now; nothing when the lines
/// of one are not there, or more than once.
std::optional<std::string> takenBack(const std::string& text, const std::vector<Change>& changes);

/// Whether a text has a line of a change, apart from those that the change found there.
bool hasLineOf(const std::string& text, const std::vector<Change>& changes);

/// Whether the lines that the changes took away are in a text, those of each one together.
bool hasRemovedLines(const std::string& text, const std::vector<Change>& changes);

/// What differs, as the hunks of a unified diff with three lines of context; empty for equal texts.
std::string shownAsHunks(const std::string& before, const std::string& after);

}  // namespace bootforge::adopt
