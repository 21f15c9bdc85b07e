// What hypcli tells about itself and about the commands that there are. All of it goes to standard
// output.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "platform/linux/command_registry.h"

namespace hypcli {

void printUsage();

/// All commands and their parameters for other programs, such as completion in shells: lines of
/// fields with tabs between, the last one the summary. A command: its path and four empty fields.
/// A parameter: the command's path, "--name", "-n" or nothing, "value" or "flag", "required" or
/// "optional".
void printList(const host_linux::CommandRegistry& registry);

/// For a host without commands: the folders that were searched, and which of them are missing.
void printFoldersOf(std::span<const char* const> searched);

/// Describes what the words name: a command with its parameters, a namespace with its commands, or,
/// for no words, all namespaces. False, and nothing printed, when they name nothing.
bool describe(const host_linux::CommandRegistry& registry, const std::vector<std::string>& path);

}  // namespace hypcli
