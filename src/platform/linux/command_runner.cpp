#include "platform/linux/command_runner.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "platform/linux/command_line.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/program.h"

namespace host_linux {
namespace {

using Values = std::vector<const std::string*>;

/// None when a parameter in it was not given.
std::optional<std::string> expand(const std::vector<Piece>& pieces, const Values& values) {
  std::string argument;
  for (const Piece& piece : pieces) {
    if (!piece.parameter) {
      argument += piece.text;
    } else if (const std::string* value = values[*piece.parameter]) {
      argument += *value;
    } else {
      return std::nullopt;
    }
  }
  return argument;
}

void appendLines(const std::string& text, std::vector<std::string>* lines) {
  for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
    end = std::min(text.find('\n', begin), text.size());
    if (end > begin) lines->push_back(text.substr(begin, end - begin));
  }
}

std::string describeEnd(int status) {
  if (WIFSIGNALED(status)) return "was killed by signal " + std::to_string(WTERMSIG(status));
  return "exited with code " + std::to_string(WEXITSTATUS(status));
}

/// So that nothing that a program has to say is lost in silence.
void passOn(const ProgramEnd& end, const std::string& program) {
  std::string text = end.standardError;
  if (end.dropped > 0) {
    text += "\n" + program + " wrote " + std::to_string(end.dropped) + " bytes more\n";
  }
  writeAll(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

std::vector<std::string> BoundCommand::errorTexts() const {
  std::vector<std::string> texts;
  for (const BindingError& error : errors) texts.push_back(error.text);
  return texts;
}

BoundCommand bindCommand(const CommandRegistry& registry, const std::vector<std::string>& path,
                         const std::vector<std::pair<std::string, std::string>>& given) {
  std::string commandName = joinWords(path);
  const Command* found = registry.find(path);
  using Kind = BindingError::Kind;
  if (!found) {
    return {{}, {{Kind::UnknownCommand, commandName, "unknown command '" + commandName + "'"}}};
  }
  const Command& command = *found;
  BoundCommand bound;
  Values values(command.parameters.size(), nullptr);
  for (const auto& [name, value] : given) {
    std::optional<std::size_t> index = findParameter(command.parameters, name);
    if (!index) {
      bound.errors.push_back({Kind::UnknownParameter, name,
                              "unknown parameter '" + name + "' of command '" + commandName + "'"});
      continue;
    }
    values[*index] = &value;
    if (command.parameters[*index].flag && value != "true") {
      bound.errors.push_back({Kind::ValueOfFlag, name,
                              "parameter '" + name + "' of command '" + commandName +
                                  "' is a flag and takes no value"});
    }
    if (value.find('\0') != std::string::npos) {
      bound.errors.push_back(
          {Kind::ZeroByte, name, "the value of parameter '" + name + "' holds a zero byte"});
    }
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (command.parameters[i].required && !values[i]) {
      const std::string& name = command.parameters[i].name;
      bound.errors.push_back(
          {Kind::MissingParameter, name,
           "missing required parameter '" + name + "' of command '" + commandName + "'"});
    }
  }
  bound.words.push_back(command.program);
  for (const std::vector<Piece>& pieces : command.arguments) {
    if (std::optional<std::string> word = expand(pieces, values)) {
      bound.words.push_back(std::move(*word));
    }
  }
  return bound;
}

std::vector<std::string> runCommand(const std::vector<std::string>& words) {
  ProgramEnd end = runProgram(words);
  const std::string& program = words.front();
  if (end.endedWell()) {
    passOn(end, program);
    return {};
  }
  std::vector<std::string> errors;
  appendLines(end.standardError, &errors);
  errors.push_back(program + " " + (end.failure.empty() ? describeEnd(end.status) : end.failure));
  return errors;
}

}  // namespace host_linux
