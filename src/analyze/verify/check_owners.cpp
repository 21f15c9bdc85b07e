#include <fmt/core.h>

#include <map>

#include "analyze/image/init_folder.h"
#include "analyze/verify/checks.h"

namespace bootforge::analyze {
namespace {

class OwnerCheck {
 public:
  OwnerCheck(const Image& image, uid_t owner, Reporter& reporter)
      : root_(image.root()), owner_(owner), reporter_(reporter) {}

  /// A file, with the folders above it. Its status is asked for where it is not known: that takes
  /// no permission to read it.
  void check(const std::string& path, std::optional<FileStatus> status) {
    if (!isNew(path)) return;
    if (!status) status = root_.status(path);
    if (status) judge(path, *status);
    if (path != "/") checkFolder(path.substr(0, path.rfind('/')));
  }

  void checkFolder(const std::string& path) {
    const std::string folder = path.empty() ? "/" : path;
    if (!seen_.contains(folder)) check(folder, std::nullopt);
  }

 private:
  bool isNew(const std::string& path) { return seen_.emplace(path, true).second; }

  void judge(const std::string& path, const FileStatus& status) {
    std::string reason;
    if ((status.mode & S_IWOTH) != 0) {
      reason = "anybody may write it";
    } else if ((status.mode & S_IWGRP) != 0) {
      reason = "its group may write it";
    }
    if (status.owner != 0 && status.owner != owner_) {
      reason +=
          fmt::format("{}it belongs to user {}", reason.empty() ? "" : ", and ", status.owner);
    }
    if (reason.empty()) return;
    reporter_.add("writable-by-others", path, path,
                  fmt::format("{} (mode {:04o})", reason, status.mode & 07777));
  }

  const RootFolder& root_;
  const uid_t owner_;
  Reporter& reporter_;
  std::map<std::string, bool> seen_;
};

}  // namespace

void checkOwners(const Image& image, const CommandCatalogue& commands, uid_t owner,
                 Reporter& reporter) {
  OwnerCheck owners(image, owner, reporter);
  if (!image.options().daemons) owners.checkFolder(image.pluginDirectory());
  for (const PluginFile& file : image.files()) {
    const Entry::Kind kind = file.entry.kind;
    if (kind == Entry::Kind::NoType || kind == Entry::Kind::UnknownType) continue;
    owners.check(file.path, file.status);
  }
  for (const CommandCatalogue::Folder& folder : commands.folders) owners.checkFolder(folder.path);
  for (const CommandSource& source : commands.sources) owners.check(source.path, source.status);
  if (image.debugText()) {
    owners.check(kDebugConfiguration, image.root().status(kDebugConfiguration));
  }
  for (const InitScript& script : image.scripts()) {
    owners.check(insideRoot(script.script), script.status);
  }
}

}  // namespace bootforge::analyze
