#include "analyze/verify/checks.h"

namespace bootforge::analyze {

void checkNative(const Image& image, Reporter& reporter) {
  for (const PluginFile& file : image.files()) {
    if (file.entry.kind != Entry::Kind::Native) continue;
    const std::string& name = file.entry.baseName;
    if (!file.unloadable.empty()) {
      reporter.add("native-unloadable", file.path, name, file.unloadable);
      continue;
    }
    for (const std::string& symbol : file.native.missingSymbols) {
      reporter.add("native-symbol-missing", file.path, name,
                   "the symbol \"" + symbol + "\" is missing");
    }
    for (const std::string& fault : file.native.recordFaults) {
      reporter.add("native-record-invalid", file.path, name, fault);
    }
    for (const MissingLibrary& library : file.missingLibraries) {
      const std::string who =
          library.neededBy.empty() ? "" : ", which \"" + library.neededBy + "\" needs,";
      reporter.add("native-library-missing", file.path, name,
                   "the library \"" + library.name + '"' + who +
                       " is in none of the image's library folders");
    }
  }
}

}  // namespace bootforge::analyze
