// From a command path and its parameters to a program that has run.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/command_registry.h"

namespace host_linux {

/// Why a command cannot be run as it was given.
struct BindingError {
  enum class Kind { UnknownCommand, UnknownParameter, ValueOfFlag, ZeroByte, MissingParameter };
  Kind kind;
  std::string name;  // of the command, or of the parameter
  std::string text;
};

struct BoundCommand {
  /// The command's program and its arguments; to be run only when there are no errors.
  std::vector<std::string> words;
  /// How long it may run, in seconds.
  std::optional<double> timeout = {};
  std::vector<BindingError> errors;

  std::vector<std::string> errorTexts() const;
};

/// Finds a command and gives its parameters the (name, value) pairs: a name is a parameter's name
/// or short name, and of several values the last one counts. An argument that names a parameter
/// which was not given is left out.
BoundCommand bindCommand(const CommandRegistry& registry, const std::vector<std::string>& path,
                         const std::vector<std::pair<std::string, std::string>>& given);

/// Runs a command that has no errors to its end. Returns what went wrong: each non-empty line of
/// its standard error without control characters, then how it ended. How much there was beyond
/// 64 KiB or 5,000 lines is logged at level 3. What a program that ends well wrote to standard
/// error goes to ours.
std::vector<std::string> runCommand(const BoundCommand& command);

}  // namespace host_linux
