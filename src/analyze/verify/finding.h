// What is wrong with an image, said for people and for programs.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge::analyze {

enum class Severity { Note, Warning, Error };

/// "error" and so on.
std::string_view nameOf(Severity severity);

/// A defect that verify knows, with the words that are the same for every finding of it.
struct Rule {
  std::string_view name;
  Severity severity;
  std::string_view summary;  // one sentence: what is found
  std::string_view help;     // what happens at boot because of it, and what to write instead
};

/// Every rule, in the order of the manual.
const std::vector<Rule>& allRules();

/// The rule of that name, which must exist.
const Rule& ruleNamed(std::string_view name);

/// A line of a file around a place, with control characters shown.
struct Excerpt {
  std::string line;
  std::size_t caret = 0;  // columns of a terminal before the place
};

struct Finding {
  const Rule* rule = nullptr;
  std::optional<std::string> file;  // inside the root
  std::optional<std::size_t> line;
  std::optional<std::size_t> column;  // in characters
  std::string subject;
  std::string message;
  std::string help;  // in addition to the rule's: the nearest names and the like
  std::optional<Excerpt> excerpt;
  // Of a cycle.
  std::vector<std::string> members;
  std::vector<std::string> cycle;
  std::optional<std::size_t> blocked;
};

using Findings = std::vector<Finding>;

/// By file, line, column and rule; none comes before anything. Equals by subject and message.
void sortFindings(Findings& findings);

/// How many findings there are of each severity, notes first.
std::array<std::size_t, 3> countOf(const Findings& findings);

}  // namespace bootforge::analyze
