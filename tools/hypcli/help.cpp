#include "tools/hypcli/help.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/linux/command_line.h"
#include "platform/linux/text.h"
#include "tools/hypcli/path.h"

namespace hypcli {
namespace {

using host_linux::Command;
using host_linux::CommandRegistry;
using host_linux::joinWords;
using host_linux::Parameter;

using Rows = std::vector<std::pair<std::string, std::string>>;

/// Command files are written by others: nothing in them commands a terminal.
void print(const std::string& text) {
  const std::string shown = host_linux::withoutControls(text);
  std::fwrite(shown.data(), 1, shown.size(), stdout);
}

/// Fields with tabs between, in one line whatever they hold.
void printRow(std::vector<std::string> fields) {
  std::string line;
  for (std::string& field : fields) {
    std::replace_if(
        field.begin(), field.end(), [](char c) { return c == '\t' || c == '\n'; }, ' ');
    line += (line.empty() ? "" : "\t") + field;
  }
  print(line + '\n');
}

/// A heading and rows of two columns; nothing where there are no rows.
void printTable(const std::string& heading, const Rows& rows) {
  if (rows.empty()) return;
  std::size_t width = 0;
  for (const auto& [left, right] : rows) width = std::max(width, left.size());
  print(heading + ":\n");
  for (const auto& [left, right] : rows) {
    std::string gap = right.empty() ? "" : std::string(width - left.size() + 2, ' ');
    print("  " + left + gap + right + "\n");
  }
}

std::string longOption(const Parameter& parameter) {
  return "--" + parameter.name + (parameter.flag ? "" : "=VALUE");
}

void describeCommand(const Path& path, const Command& command) {
  std::string usage = "Usage: hypcli " + joinWords(path);
  Rows rows;
  for (const Parameter& parameter : command.parameters) {
    std::string option = longOption(parameter);
    usage += parameter.required ? " " + option : " [" + option + "]";
    std::string shortOption =
        parameter.shortName.empty() ? "    " : "-" + parameter.shortName + ", ";
    std::string summary = parameter.summary;
    if (parameter.required) summary += summary.empty() ? "(required)" : " (required)";
    rows.emplace_back(shortOption + option, summary);
  }
  print(usage + "\n");
  if (!command.summary.empty()) print("\n" + command.summary + "\n");
  if (!rows.empty()) print("\n");
  printTable("Parameters", rows);
}

}  // namespace

void printUsage() {
  print(
      "Usage: hypcli [NAMESPACE... [COMMAND [OPTION...]]]\n"
      "Runs one of the host's management commands.\n"
      "\n"
      "  hypcli                            list the namespaces\n"
      "  hypcli NAMESPACE...               list the commands of a namespace\n"
      "  hypcli NAMESPACE... COMMAND --help | -h\n"
      "                                    tell a command's parameters\n"
      "  hypcli NAMESPACE... COMMAND [--NAME=VALUE | --NAME VALUE | -N VALUE | --FLAG]...\n"
      "                                    run a command\n"
      "  hypcli --list                     list all commands with their parameters, for programs\n"
      "  hypcli --help | -h | --version | -v\n"
      "\n"
      "The exit status is 0 when the command succeeded, 1 when it failed and 2 when there is no "
      "such\n"
      "command or it does not take these options.\n");
}

void printList(const CommandRegistry& registry) {
  for (const auto& [path, entry] : registry.commands()) {
    const std::string name = joinWords(path);
    printRow({name, "", "", "", "", entry.command.summary});
    for (const Parameter& parameter : entry.command.parameters) {
      printRow({name, "--" + parameter.name,
                parameter.shortName.empty() ? "" : '-' + parameter.shortName,
                parameter.flag ? "flag" : "value", parameter.required ? "required" : "optional",
                parameter.summary});
    }
  }
}

void printFoldersOf(std::span<const char* const> searched) {
  print("No commands. These folders were searched for command files (*.json):\n");
  for (const char* const folder : searched) {
    const bool isMissing = ::access(folder, F_OK) != 0;
    print("  " + std::string(folder) + (isMissing ? "  (missing)" : "") + "\n");
  }
}

bool describe(const CommandRegistry& registry, const Path& path) {
  const Command* command = registry.find(path);
  Rows commands;
  for (const auto& [commandPath, entry] : registry.commands()) {
    if (commandPath.size() == path.size() + 1 && beginsWith(commandPath, path)) {
      commands.emplace_back(commandPath.back(), entry.command.summary);
    }
  }
  Rows nameSpaces;
  bool isNameSpace = path.empty();
  for (const Path& nameSpace : registry.nameSpaces()) {
    if (!beginsWith(nameSpace, path)) continue;
    isNameSpace = true;
    if (nameSpace.size() > path.size()) nameSpaces.emplace_back(joinWords(nameSpace), "");
  }
  if (!command && !isNameSpace) return false;
  if (command) describeCommand(path, *command);
  if (command && isNameSpace) print("\n");
  printTable("Commands of " + joinWords(path), commands);
  if (!commands.empty() && !nameSpaces.empty()) print("\n");
  printTable("Namespaces", nameSpaces);
  if (isNameSpace && commands.empty() && nameSpaces.empty()) print("No commands.\n");
  return true;
}

}  // namespace hypcli
