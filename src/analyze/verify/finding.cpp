#include "analyze/verify/finding.h"

#include <algorithm>
#include <cassert>
#include <tuple>

namespace bootforge::analyze {

std::string_view nameOf(Severity severity) {
  switch (severity) {
    case Severity::Note:
      return "note";
    case Severity::Warning:
      return "warning";
    case Severity::Error:
      break;
  }
  return "error";
}

const Rule& ruleNamed(std::string_view name) {
  const std::vector<Rule>& rules = allRules();
  const auto rule = std::find_if(rules.begin(), rules.end(),
                                 [name](const Rule& other) { return other.name == name; });
  assert(rule != rules.end());
  return *rule;
}

void sortFindings(Findings& findings) {
  const auto key = [](const Finding& finding) {
    return std::tie(finding.file, finding.line, finding.column, finding.rule->name, finding.subject,
                    finding.message);
  };
  std::stable_sort(
      findings.begin(), findings.end(),
      [&key](const Finding& one, const Finding& other) { return key(one) < key(other); });
}

std::array<std::size_t, 3> countOf(const Findings& findings) {
  std::array<std::size_t, 3> counts{};
  for (const Finding& finding : findings) {
    ++counts[static_cast<std::size_t>(finding.rule->severity)];
  }
  return counts;
}

}  // namespace bootforge::analyze
