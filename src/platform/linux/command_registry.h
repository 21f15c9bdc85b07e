// All commands that were registered, by their paths.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/command.h"
#include "platform/linux/command_file.h"

namespace host_linux {

/// Whether a folder's entry is a command file: "*.json", where "*" stands for no name that begins
/// with a dot, as in a shell.
bool isCommandFileName(std::string_view name);

class CommandRegistry {
 public:
  struct Entry {
    Command command;
    std::string file;  // where it is defined
  };
  /// By path. Those of one namespace stand together.
  using Commands = std::map<std::vector<std::string>, Entry>;

  /// Registers what the "*.json" files of a directory define, in the order of their names; as in a
  /// shell, "*" stands for no name that begins with a dot. A bad file is logged at level 3 and
  /// skipped, and so is a key that is not known. Of two definitions of one command the later one
  /// counts, which is logged at level 5. Throws std::exception, which names the directory, and
  /// registers nothing when that cannot be read.
  void addDirectory(const std::string& directory);

  /// A command that a later definition has taken the place of.
  struct Shadowed {
    std::vector<std::string> path;
    std::string file;   // where it was defined before
    std::size_t index;  // of the later definition among the commands of its file
  };

  /// Registers the commands of a good file that was found under that path.
  std::vector<Shadowed> add(const CommandFile& file, const std::string& path);

  /// Null when there is no such command.
  const Command* find(const std::vector<std::string>& path) const;

  const Commands& commands() const { return commands_; }
  /// Each namespace that a file describes, with or without commands.
  const std::set<std::vector<std::string>>& nameSpaces() const { return nameSpaces_; }

 private:
  Commands commands_;
  std::set<std::vector<std::string>> nameSpaces_;
};

}  // namespace host_linux
