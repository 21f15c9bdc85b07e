#include <algorithm>
#include <array>

#include "analyze/verify/render.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

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

constexpr const char* kIndent = "    ";
constexpr std::size_t kIndentWidth = 4;

/// Indented, and broken at blanks so that no line is wider, where words allow that.
std::string paragraph(const std::string& text, std::size_t width) {
  std::string result;
  std::size_t used = 0;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find(' ', at), text.size());
    const std::string word = text.substr(at, end - at);
    const std::size_t columns = displayWidth(word);
    const bool isFirst = at == 0;
    const bool fits = !isFirst && used + 1 + columns <= width;
    if (!isFirst) result += fits ? " " : "\n";
    if (!fits) {
      result += kIndent;
      used = kIndentWidth;
    } else {
      ++used;
    }
    result += word;
    used += columns;
    at = end + 1;
  }
  return result + '\n';
}

/// As much of a line as fits, with dots for the rest. A place behind that keeps its line whole.
std::string fitted(const Excerpt& excerpt, std::size_t width) {
  const std::string dots = "...";
  if (displayWidth(excerpt.line) <= width || excerpt.caret + dots.size() >= width) {
    return excerpt.line;
  }
  std::size_t end = 0;
  for (std::size_t used = 0; end < excerpt.line.size();) {
    const std::size_t length = firstCharacter(std::string_view(excerpt.line).substr(end)).length;
    used += displayWidth(excerpt.line.substr(end, length));
    if (used + dots.size() > width) break;
    end += length;
  }
  return excerpt.line.substr(0, end) + dots;
}

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

}  // namespace

std::string renderText(const Findings& findings, bool isColourful, std::size_t width) {
  const Style style(isColourful);
  std::string text;
  for (const Finding& finding : findings) {
    text += style.bold(placeOf(finding)) + ": " + style.severity(finding.rule->severity) + ": " +
            printable(finding.message) + ' ' +
            style.faint("[" + std::string(finding.rule->name) + "]") + '\n';
    if (finding.excerpt && !finding.excerpt->line.empty()) {
      text += kIndent + fitted(*finding.excerpt, width - std::min(width, kIndentWidth)) + '\n' +
              kIndent + std::string(finding.excerpt->caret, ' ') + style.bold("^") + '\n';
    }
    if (!finding.help.empty()) text += paragraph(printable(finding.help), width);
    text += paragraph(std::string(finding.rule->help), width);
  }
  if (findings.empty()) return text + "no findings\n";
  const std::array<std::size_t, 3> counts = countOf(findings);
  return text + counted(counts[2], "error") + ", " + counted(counts[1], "warning") + ", " +
         counted(counts[0], "note") + '\n';
}

}  // namespace bootforge::analyze
