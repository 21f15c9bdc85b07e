// What may have been meant, and where to read on, for words that name nothing.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/command_line.h"
#include "platform/linux/command_registry.h"
#include "platform/linux/command_runner.h"

namespace hypcli {

/// The longest beginning of a path that names a command or a namespace; empty when none does.
std::vector<std::string> knownPart(const host_linux::CommandRegistry& registry,
                                   const std::vector<std::string>& path);

/// "Did you mean 'network ip set'?" for a misspelt command, and the same for each parameter of a
/// command that it does not have. Empty where nothing is near.
std::vector<std::string> suggestions(const host_linux::CommandRegistry& registry,
                                     const host_linux::CommandLine& line,
                                     const host_linux::BoundCommand& bound);

/// A remark on each option that has no value and whose parameter wants one: it was given "true",
/// which is seldom meant.
std::vector<std::string> remarksOnMissingValues(const host_linux::CommandRegistry& registry,
                                                const host_linux::CommandLine& line);

}  // namespace hypcli
