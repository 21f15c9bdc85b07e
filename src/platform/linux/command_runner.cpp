#include "platform/linux/command_runner.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "platform/linux/command_line.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/program.h"
#include "platform/linux/text.h"
#include "platform/log.h"

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

/// A program that says more is cut short: each line becomes a message with the whole command. That
/// many lines of a dozen characters fill the 64 KiB that are kept.
constexpr std::size_t kMostLines = 5000;

/// Appends the non-empty lines; returns how many bytes of lines were too many.
std::size_t appendLines(const std::string& text, std::vector<std::string>* lines) {
  for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
    end = std::min(text.find('\n', begin), text.size());
    if (end == begin) continue;
    if (lines->size() == kMostLines) return text.size() - begin;
    lines->push_back(withoutControls(std::string_view(text).substr(begin, end - begin)));
  }
  return 0;
}

std::string describeMore(const std::string& program, std::size_t bytes) {
  return program + " wrote " + std::to_string(bytes) + " bytes more";
}

/// The smallest number that there is has no more.
constexpr int kMostDecimals = 324;

/// "2", "0.5": as few digits as tell it. Not by std::to_chars, for which alone every start of the
/// program would load the mathematical library.
std::string describeSeconds(double seconds) {
  char text[400];
  int decimals = 0;
  do {
    std::snprintf(text, sizeof text, "%.*f", decimals, seconds);
  } while (std::strtod(text, nullptr) != seconds && ++decimals <= kMostDecimals);
  return text;
}

std::string describeEnd(const ProgramEnd& end, std::optional<double> timeout) {
  if (end.timedOut) return "timed out after " + describeSeconds(*timeout) + " s";
  if (!end.failure.empty()) return end.failure;
  if (WIFSIGNALED(end.status))
    return "was killed by signal " + std::to_string(WTERMSIG(end.status));
  return "exited with code " + std::to_string(WEXITSTATUS(end.status));
}

/// So that nothing that a program has to say is lost in silence.
void passOn(const ProgramEnd& end, const std::string& program) {
  std::string text = withoutControls(end.standardError);
  if (end.dropped > 0) text += "\n" + describeMore(program, end.dropped) + "\n";
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
  BoundCommand bound;
  if (!found) {
    bound.errors.push_back(
        {Kind::UnknownCommand, commandName, "unknown command '" + commandName + "'"});
    return bound;
  }
  const Command& command = *found;
  bound.timeout = command.timeout;
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

std::vector<std::string> runCommand(const BoundCommand& command) {
  ProgramEnd end = runProgram(command.words, command.timeout);
  const std::string& program = command.words.front();
  if (end.endedWell()) {
    passOn(end, program);
    return {};
  }
  std::vector<std::string> errors;
  const std::size_t more = appendLines(end.standardError, &errors) + end.dropped;
  if (more > 0) Log_Level(3, "%s\n", describeMore(program, more).c_str());
  errors.push_back(program + " " + describeEnd(end, command.timeout));
  return errors;
}

}  // namespace host_linux
