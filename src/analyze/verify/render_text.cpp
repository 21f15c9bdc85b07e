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

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

}  // namespace

std::string renderText(const Findings& findings, bool isColourful) {
  const Style style(isColourful);
  std::string text;
  for (const Finding& finding : findings) {
    text += style.bold(placeOf(finding)) + ": " + style.severity(finding.rule->severity) + ": " +
            printable(finding.message) + ' ' +
            style.faint("[" + std::string(finding.rule->name) + "]") + '\n';
    if (finding.excerpt && !finding.excerpt->line.empty()) {
      text += "    " + finding.excerpt->line + "\n    " + std::string(finding.excerpt->caret, ' ') +
              style.bold("^") + '\n';
    }
    if (!finding.help.empty()) text += "    " + printable(finding.help) + '\n';
    text += "    " + std::string(finding.rule->help) + '\n';
  }
  if (findings.empty()) return text + "no findings\n";
  const std::array<std::size_t, 3> counts = countOf(findings);
  return text + counted(counts[2], "error") + ", " + counted(counts[1], "warning") + ", " +
         counted(counts[0], "note") + '\n';
}

}  // namespace bootforge::analyze
