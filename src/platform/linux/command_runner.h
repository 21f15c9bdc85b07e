// From a command path and its parameters to a program that has run.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/command_registry.h"

namespace host_linux {

struct BoundCommand {
  /// The command's program and its arguments; to be run only when there are no errors.
  std::vector<std::string> words;
  /// How long it may run, in seconds.
  std::optional<double> timeout = {};
  std::vector<std::string> errors;
};

/// Finds a command and gives its parameters the (name, value) pairs: a name is a parameter's name
/// or short name, and of several values the last one counts. An argument that names a parameter
/// which was not given is left out.
BoundCommand bindCommand(const CommandRegistry& registry, const std::vector<std::string>& path,
                         const std::vector<std::pair<std::string, std::string>>& given);

/// Runs a command that has no errors to its end. Returns what went wrong: each non-empty line of
/// its standard error without control characters, but for what is beyond 64 KiB or 1,000 lines, of
/// which the size is told; then how it ended. What a program that ends well wrote to standard error
/// goes to ours.
std::vector<std::string> runCommand(const BoundCommand& command);

}  // namespace host_linux
