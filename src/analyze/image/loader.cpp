#include "analyze/image/loader.h"

#include <elf.h>

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <deque>
#include <map>
#include <optional>
#include <set>

#include "analyze/image/library_folders.h"
#include "analyze/image/machine.h"
#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

/// Why the loader would not take an object, or nothing.
std::string reasonAgainst(const PluginFile& file, std::uint16_t machine) {
  if (file.error != 0) {
    const bool isFile = !file.status || file.status->isRegular();
    return isFile ? "cannot open shared object file: " + systemErrorText(file.error)
                  : "cannot open shared object file: it is no regular file";
  }
  if (!file.native.unloadable.empty()) return file.native.unloadable;
  if (file.native.machine == EM_NONE) return "it is made for no machine";
  if (file.native.machine == machine) return {};
  return "it is made for " + machineName(file.native.machine) + ", and the image for " +
         machineName(machine);
}

/// The loader itself is there: without it the orchestrator would not run.
bool isLoader(const std::string& library) {
  return library.starts_with("ld-linux") || library.starts_with("ld64.so") ||
         library.starts_with("ld-musl") || library.starts_with("ld.so");
}

class Libraries {
 public:
  Libraries(const RootFolder& root, std::uint16_t machine)
      : root_(root), machine_(machine), folders_(libraryFolders(root)) {}

  /// By breadth, as the loader goes: what the object needs, and what that needs.
  std::vector<MissingLibrary> missingOf(const PluginFile& file) {
    std::vector<MissingLibrary> missing;
    std::set<std::string> seen;
    std::vector<Need> needs;
    std::deque<RunPath> runPaths;
    const auto add = [&](const std::string& object, const std::string& path,
                         const NeededLibraries& libraries, const RunPath* outer) {
      const RunPath& own = runPaths.emplace_back(runPathOf(path, libraries, outer));
      for (const std::string& library : libraries.names) {
        if (!object.empty() && isLoader(library)) continue;
        if (seen.insert(library).second) needs.push_back({library, object, &own});
      }
    };
    add("", file.path, file.native.libraries, nullptr);
    for (std::size_t i = 0; i < needs.size(); ++i) {
      const Need need = needs[i];
      if (const std::optional<std::string> path = find(need.library, *need.runPath)) {
        add(need.library, *path, neededLibrariesOf(*path), need.runPath);
      } else {
        missing.push_back({need.library, need.neededBy});
      }
    }
    return missing;
  }

 private:
  using Folders = std::vector<std::string>;

  /// Of an object, inside those of the objects that it was loaded for.
  struct RunPath {
    Folders folders;
    bool isPassedOn;  // an old one, DT_RPATH; what has a new one does not look at those outside
    const RunPath* outer;
  };

  struct Need {
    std::string library;
    std::string neededBy;
    const RunPath* runPath;
  };

  static RunPath runPathOf(const std::string& path, const NeededLibraries& libraries,
                           const RunPath* outer) {
    RunPath runPath{libraries.folders, libraries.arePassedOn, outer};
    for (std::string& folder : runPath.folders) {
      boost::algorithm::replace_all(folder, "${ORIGIN}", folderOf(path));
      boost::algorithm::replace_all(folder, "$ORIGIN", folderOf(path));
    }
    return runPath;
  }

  /// Where a library is, or nothing.
  std::optional<std::string> find(const std::string& library, const RunPath& own) {
    // The loader takes a name with a slash for a path.
    if (library.find('/') != std::string::npos) {
      return isLibrary(library) ? std::optional(library) : std::nullopt;
    }
    for (const RunPath* runPath = &own; runPath != nullptr; runPath = runPath->outer) {
      if (runPath != &own && !runPath->isPassedOn) continue;
      if (auto path = findIn(runPath->folders, library)) return path;
      if (!own.isPassedOn) break;
    }
    const auto [known, isNew] = found_.try_emplace(library);
    if (isNew) known->second = findIn(folders_, library);
    return known->second;
  }

  std::optional<std::string> findIn(const Folders& folders, const std::string& library) const {
    for (const std::string& folder : folders) {
      std::string path = joined(folder, library);
      if (isLibrary(path)) return path;
    }
    return std::nullopt;
  }

  bool isLibrary(const std::string& path) const {
    const std::optional<FileStatus> status = root_.status(path);
    return status && status->isRegular();
  }

  const NeededLibraries& neededLibrariesOf(const std::string& path) {
    const auto [known, isNew] = needed_.try_emplace(path);
    if (isNew) {
      // One for another machine is not what the loader would take.
      const std::string library = root_.read(path).value_or("");
      if (machineOf(library) == machine_) known->second = readNeededLibraries(library);
    }
    return known->second;
  }

  const RootFolder& root_;
  const std::uint16_t machine_;
  const Folders folders_;
  std::map<std::string, std::optional<std::string>> found_;
  std::map<std::string, NeededLibraries> needed_;
};

}  // namespace

void judgeAsLoader(const RootFolder& root, std::vector<PluginFile>& files) {
  const auto isNative = [](const PluginFile& file) {
    return file.entry.kind == Entry::Kind::Native;
  };
  if (std::none_of(files.begin(), files.end(), isNative)) return;
  const std::uint16_t machine = machineOfImage(root, files);
  Libraries libraries(root, machine);
  for (PluginFile& file : files) {
    if (!isNative(file)) continue;
    file.unloadable = reasonAgainst(file, machine);
    if (file.unloadable.empty()) file.missingLibraries = libraries.missingOf(file);
  }
}

}  // namespace bootforge::analyze
