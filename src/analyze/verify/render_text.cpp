#include <algorithm>
#include <array>
#include <sstream>

#include "analyze/verify/render.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

const std::string kIndent = "    ";
const std::string kCut = "...";
// Columns; a terminal that has fewer breaks the lines itself.
constexpr std::size_t kNarrowest = 40;

class Style {
 public:
  explicit Style(bool isColourful) : isColourful_(isColourful) {}

  std::string bold(const std::string& text) const { return in("1", text); }
  std::string faint(const std::string& text) const { return in("2", text); }
  std::string severity(Severity severity) const {
    const char* const colour = severity == Severity::Error     ? "1;31"
                               : severity == Severity::Warning ? "1;33"
                                                               : "1;36";
    return in(colour, std::string(nameOf(severity)));
  }

 private:
  std::string in(const char* code, const std::string& text) const {
    return isColourful_ ? "\033[" + std::string(code) + "m" + text + "\033[0m" : text;
  }

  bool isColourful_;
};

std::string placeOf(const Finding& finding) {
  std::string text = finding.file ? printable(*finding.file) : "image";
  if (finding.line) text += ':' + std::to_string(*finding.line);
  if (finding.column) text += ':' + std::to_string(*finding.column);
  return text;
}

/// The excerpt within so many columns, around its caret.
Excerpt fitted(const Excerpt& excerpt, std::size_t width) {
  if (displayWidth(excerpt.line) <= width) return excerpt;
  const std::size_t room = width - 2 * kCut.size();
  const std::size_t begin = excerpt.caret < room / 3 * 2 ? 0 : excerpt.caret - room / 2;
  std::string shown = begin > 0 ? kCut : "";
  const std::size_t caret = shown.size() + excerpt.caret - begin;
  std::size_t column = 0;
  for (std::string_view rest = excerpt.line; !rest.empty();) {
    const std::string_view character = rest.substr(0, firstCharacter(rest).length);
    const std::size_t end = column + displayWidth(character);
    if (end > begin + room) {
      shown += kCut;
      break;
    }
    if (column >= begin) {
      shown += character;
    } else if (end > begin) {
      shown += ' ';  // half of a wide character
    }
    column = end;
    rest.remove_prefix(character.size());
  }
  return {shown, caret};
}

/// A text of words in indented lines of so many columns; a longer word has a line of its own.
std::string wrapped(const std::string& text, std::size_t width) {
  if (displayWidth(text) <= width) return kIndent + text + '\n';
  std::string lines;
  std::string line;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!line.empty() && displayWidth(line) + 1 + displayWidth(word) > width) {
      lines += kIndent + line + '\n';
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  return lines + kIndent + line + '\n';
}

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

}  // namespace

std::string renderText(const Findings& findings, bool isColourful,
                       std::optional<std::size_t> columns) {
  const Style style(isColourful);
  const std::size_t width =
      columns ? std::max(*columns, kNarrowest) - kIndent.size() : std::string::npos;
  std::string text;
  for (const Finding& finding : findings) {
    text += style.bold(placeOf(finding)) + ": " + style.severity(finding.rule->severity) + ": " +
            printable(finding.message) + ' ' +
            style.faint("[" + std::string(finding.rule->name) + "]") + '\n';
    if (finding.excerpt && !finding.excerpt->line.empty()) {
      const Excerpt shown = fitted(*finding.excerpt, width);
      text += kIndent + shown.line + '\n' + kIndent + std::string(shown.caret, ' ') +
              style.bold("^") + '\n';
    }
    if (!finding.help.empty()) text += wrapped(printable(finding.help), width);
    text += wrapped(std::string(finding.rule->help), width);
  }
  if (findings.empty()) return text + "no findings\n";
  const std::array<std::size_t, 3> counts = countOf(findings);
  return text + counted(counts[2], "error") + ", " + counted(counts[1], "warning") + ", " +
         counted(counts[0], "note") + '\n';
}

}  // namespace bootforge::analyze
