#include "analyze/image/loader.h"

#include <elf.h>

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <map>

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

class Libraries {
 public:
  explicit Libraries(const RootFolder& root) : root_(root), folders_(libraryFolders(root)) {}

  std::vector<std::string> missingOf(const PluginFile& file) {
    std::vector<std::string> missing = file.native.needed;
    std::erase_if(missing, [&](const std::string& library) { return isThere(file, library); });
    return missing;
  }

 private:
  bool isThere(const PluginFile& file, const std::string& library) {
    // The loader takes a name with a slash for a path.
    if (library.find('/') != std::string::npos) return isLibrary(library);
    for (std::string folder : file.native.libraryFolders) {
      boost::algorithm::replace_all(folder, "${ORIGIN}", folderOf(file.path));
      boost::algorithm::replace_all(folder, "$ORIGIN", folderOf(file.path));
      if (isLibrary(joined(folder, library))) return true;
    }
    const auto [known, isNew] = found_.emplace(library, false);
    if (isNew) {
      known->second = std::any_of(folders_.begin(), folders_.end(), [&](const std::string& folder) {
        return isLibrary(joined(folder, library));
      });
    }
    return known->second;
  }

  bool isLibrary(const std::string& path) const {
    const std::optional<FileStatus> status = root_.status(path);
    return status && status->isRegular();
  }

  const RootFolder& root_;
  const std::vector<std::string> folders_;
  std::map<std::string, bool> found_;
};

}  // namespace

void judgeAsLoader(const RootFolder& root, std::vector<PluginFile>& files) {
  const auto isNative = [](const PluginFile& file) {
    return file.entry.kind == Entry::Kind::Native;
  };
  if (std::none_of(files.begin(), files.end(), isNative)) return;
  const std::uint16_t machine = machineOfImage(root, files);
  Libraries libraries(root);
  for (PluginFile& file : files) {
    if (!isNative(file)) continue;
    file.unloadable = reasonAgainst(file, machine);
    if (file.unloadable.empty()) file.missingLibraries = libraries.missingOf(file);
  }
}

}  // namespace bootforge::analyze
