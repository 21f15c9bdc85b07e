#include "tools/hypcli/advice.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "reading/nearest.h"
#include "tools/hypcli/path.h"

namespace hypcli {
namespace {

using host_linux::BindingError;
using host_linux::BoundCommand;
using host_linux::Command;
using host_linux::CommandLine;
using host_linux::CommandRegistry;
using host_linux::joinWords;
using host_linux::Parameter;

constexpr std::size_t kMostSuggestions = 3;

/// The words that lead from a namespace to its commands and to the namespaces in it.
std::set<std::string> nextWords(const CommandRegistry& registry, const Path& start) {
  std::set<std::string> words;
  const auto take = [&](const Path& path) {
    if (path.size() > start.size() && beginsWith(path, start)) words.insert(path[start.size()]);
  };
  for (const auto& [path, entry] : registry.commands()) take(path);
  for (const Path& path : registry.nameSpaces()) take(path);
  return words;
}

/// The words themselves where they are known, and else those that are near.
Path nearWords(const std::string& word, const std::set<std::string>& known) {
  if (known.contains(word)) return {word};
  const std::vector<std::string_view> near =
      bootforge::nearestNames(word, {known.begin(), known.end()});
  return {near.begin(), near.end()};
}

/// The paths whose words are each near the one that was given.
std::vector<Path> nearPaths(const CommandRegistry& registry, const Path& given) {
  std::vector<Path> found{{}};
  for (const std::string& word : given) {
    std::vector<Path> longer;
    for (const Path& start : found) {
      for (const std::string& next : nearWords(word, nextWords(registry, start))) {
        longer.push_back(start);
        longer.back().push_back(next);
      }
    }
    found = std::move(longer);
  }
  return found;
}

/// "Did you mean 'a' or 'b'?", nothing for no names.
void suggest(const std::vector<std::string>& names, std::vector<std::string>* lines) {
  if (names.empty()) return;
  std::string line = "Did you mean ";
  for (const std::string& name : names) {
    if (&name != &names.front()) line += " or ";
    line += "'" + name + "'";
  }
  lines->push_back(line + "?");
}

std::vector<std::string> nearParameters(const std::string& name,
                                        const std::vector<Parameter>& parameters) {
  std::vector<std::string> options;
  if (name.size() < 2) return options;  // every letter is near every other
  std::vector<std::string_view> names;
  names.reserve(parameters.size());
  for (const Parameter& parameter : parameters) names.push_back(parameter.name);
  for (const std::string_view near : bootforge::nearestNames(name, names)) {
    options.push_back("--" + std::string(near));
  }
  return options;
}

}  // namespace

Path knownPart(const CommandRegistry& registry, const Path& path) {
  Path known;
  for (const std::string& word : path) {
    if (!nextWords(registry, known).contains(word)) break;
    known.push_back(word);
  }
  return known;
}

std::vector<std::string> suggestions(const CommandRegistry& registry, const CommandLine& line,
                                     const BoundCommand& bound) {
  std::vector<std::string> lines;
  const Command* const command = registry.find(line.path);
  if (command == nullptr) {
    std::vector<std::string> names;
    for (const Path& path : nearPaths(registry, line.path)) {
      if (path != line.path && names.size() < kMostSuggestions) names.push_back(joinWords(path));
    }
    suggest(names, &lines);
    return lines;
  }
  for (const BindingError& error : bound.errors) {
    if (error.kind != BindingError::Kind::UnknownParameter) continue;
    suggest(nearParameters(error.name, command->parameters), &lines);
  }
  return lines;
}

std::vector<std::string> remarksOnMissingValues(const CommandRegistry& registry,
                                                const CommandLine& line) {
  std::vector<std::string> lines;
  const Command* const command = registry.find(line.path);
  if (command == nullptr) return lines;
  for (const std::string& name : line.withoutValue) {
    const auto index = host_linux::findParameter(command->parameters, name);
    if (!index || command->parameters[*index].flag) continue;
    lines.push_back("parameter '" + name + "' of command '" + joinWords(line.path) +
                    "' has no value and is taken as 'true'");
  }
  return lines;
}

}  // namespace hypcli
