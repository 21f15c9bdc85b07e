#include "analyze/image/command_catalogue.h"

#include <algorithm>
#include <cerrno>

#include "cli/command_directories.h"
#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

CommandSource readSource(const RootFolder& root, const std::string& path) {
  CommandSource source;
  source.path = path;
  FileStatus status;
  std::optional<std::string> text = root.read(path, &status);
  const int error = errno;
  if (status.mode != 0) source.status = status;
  if (!text) {
    const bool isFile = !source.status || source.status->isRegular();
    source.unreadable = !isFile          ? "is no regular file"
                        : error == EFBIG ? "is larger than 16 MiB"
                                         : systemErrorText(error);
    return source;
  }
  const JsonText json(*std::move(text));
  source.text = json.text();
  source.file = host_linux::readCommandFile(json);
  return source;
}

}  // namespace

std::vector<std::string> CommandCatalogue::pathOf(std::size_t source,
                                                  std::size_t definition) const {
  std::vector<std::string> path = sources[source].file.nameSpace;
  path.push_back(sources[source].file.commands[definition].word);
  return path;
}

CommandCatalogue readCommands(const RootFolder& root) {
  CommandCatalogue catalogue;
  for (const char* const folder : kCommandDirectories) {
    std::optional<std::vector<std::string>> names = root.list(folder);
    catalogue.folders.push_back({folder, names ? 0 : errno});
    if (!names) continue;
    std::erase_if(*names,
                  [](const std::string& name) { return !host_linux::isCommandFileName(name); });
    std::sort(names->begin(), names->end());
    for (const std::string& name : *names) {
      catalogue.sources.push_back(readSource(root, joined(folder, name)));
      const CommandSource& source = catalogue.sources.back();
      if (!source.isGood()) continue;
      const std::size_t index = catalogue.sources.size() - 1;
      for (auto& shadowed : catalogue.registry.add(source.file, source.path)) {
        catalogue.shadowed.push_back({{index, shadowed.index}, shadowed.path, shadowed.file});
      }
      for (std::size_t i = 0; i < source.file.commands.size(); ++i) {
        catalogue.places[catalogue.pathOf(index, i)] = {index, i};
      }
    }
  }
  return catalogue;
}

}  // namespace bootforge::analyze
