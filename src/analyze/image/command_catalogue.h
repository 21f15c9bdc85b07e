// The commands that an image defines.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "analyze/image/root_folder.h"
#include "platform/linux/command_file.h"
#include "platform/linux/command_registry.h"

namespace bootforge::analyze {

/// A command file, bad ones included.
struct CommandSource {
  std::string path;  // inside the root
  std::optional<FileStatus> status;
  std::string unreadable;  // why it cannot be read; empty when it can
  std::string text;
  host_linux::CommandFile file;

  bool isGood() const { return unreadable.empty() && file.faults.empty(); }
};

/// A definition that counts: where it stands.
struct CommandPlace {
  std::size_t source = 0;  // an index into sources
  std::size_t definition = 0;
};

/// The command folders, read in the executor's order.
struct CommandCatalogue {
  struct Folder {
    std::string path;
    int error = 0;  // why it cannot be read; 0 when it can
  };
  struct Shadowed {
    CommandPlace by;
    std::vector<std::string> path;
    std::string file;  // where the definition stood that no longer counts
  };

  /// The command path of a definition.
  std::vector<std::string> pathOf(std::size_t source, std::size_t definition) const;

  std::vector<Folder> folders;
  std::vector<CommandSource> sources;
  host_linux::CommandRegistry registry;
  std::map<std::vector<std::string>, CommandPlace> places;
  std::vector<Shadowed> shadowed;
};

CommandCatalogue readCommands(const RootFolder& root);

}  // namespace bootforge::analyze
