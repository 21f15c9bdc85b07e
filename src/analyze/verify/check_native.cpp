#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <cerrno>
#include <map>
#include <optional>

#include "analyze/image/library_folders.h"
#include "analyze/image/machine.h"
#include "analyze/verify/checks.h"
#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::optional<std::string> unloadable(const PluginFile& file, std::uint16_t machine) {
  if (file.error != 0) {
    const bool isFile = !file.status || file.status->isRegular();
    return isFile ? "cannot open shared object file: " + systemErrorText(file.error)
                  : "cannot open shared object file: it is no regular file";
  }
  if (!file.native.unloadable.empty()) return file.native.unloadable;
  if (file.native.machine == machine) return std::nullopt;
  return "it is made for " + machineName(file.native.machine) + ", and the image for " +
         machineName(machine);
}

class LibraryCheck {
 public:
  LibraryCheck(const Image& image, Reporter& reporter)
      : image_(image), reporter_(reporter), folders_(libraryFolders(image.root())) {}

  void check(const PluginFile& file) {
    for (const std::string& library : file.native.needed) {
      if (isThere(file, library)) continue;
      reporter_.add("native-library-missing", file.path, file.entry.baseName,
                    "the library \"" + library + "\" is in none of the image's library folders");
    }
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
    const std::optional<FileStatus> status = image_.root().status(path);
    return status && status->isRegular();
  }

  const Image& image_;
  Reporter& reporter_;
  const std::vector<std::string> folders_;
  std::map<std::string, bool> found_;
};

}  // namespace

void checkNative(const Image& image, Reporter& reporter) {
  const std::uint16_t machine = machineOfImage(image);
  LibraryCheck libraries(image, reporter);
  for (const PluginFile& file : image.files()) {
    if (file.entry.kind != Entry::Kind::Native) continue;
    const std::string& name = file.entry.baseName;
    if (const auto reason = unloadable(file, machine)) {
      reporter.add("native-unloadable", file.path, name, *reason);
      continue;
    }
    for (const std::string& symbol : file.native.missingSymbols) {
      reporter.add("native-symbol-missing", file.path, name,
                   "the symbol \"" + symbol + "\" is missing");
    }
    for (const std::string& fault : file.native.recordFaults) {
      reporter.add("native-record-invalid", file.path, name, fault);
    }
    libraries.check(file);
  }
}

}  // namespace bootforge::analyze
