// The grammar of command lines.
//
//     network ip set -i eth0 --address=10.0.0.1/24
//
// The words before the first one that begins with '-' are the command path. Then come options:
// `--name=value`, `--name value`, `-n value`, `-n=value`. An option that another option or nothing
// follows is a flag, with the value "true".
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host_linux {

struct CommandLine {
  std::vector<std::string> path;
  /// (name, value) in the order of the line, names without their dashes.
  std::vector<std::pair<std::string, std::string>> parameters;
  /// Names of options that stand without a value, in the order of the line.
  std::vector<std::string> withoutValue;
  /// Why the line is none; empty for a good one.
  std::vector<std::string> errors;
};

/// Splits a line into words and unquotes them as a shell does (single and double quotes,
/// backslash); nothing is expanded. False when a quote or a backslash has no end.
bool splitWords(std::string_view line, std::vector<std::string>* words);

/// Reads words as they are.
CommandLine parseWords(const std::vector<std::string>& words);

/// Splits and reads a line.
CommandLine parseLine(std::string_view line);

/// The words with single blanks between them, as messages show a command path.
std::string joinWords(const std::vector<std::string>& words);

}  // namespace host_linux
