#include "analyze/image/library_folders.h"

#include <fnmatch.h>

#include <algorithm>
#include <set>
#include <sstream>

namespace bootforge::analyze {
namespace {

/// Reads configuration files, each of them once.
class Configuration {
 public:
  Configuration(const RootFolder& root, std::vector<std::string>& folders)
      : root_(root), folders_(folders) {}

  void read(const std::string& path) {
    if (!seen_.insert(path).second) return;
    std::istringstream lines(root_.read(path).value_or(""));
    for (std::string line; std::getline(lines, line);) {
      line.resize(std::min(line.find('#'), line.size()));
      std::istringstream words(line);
      std::string word;
      if (!(words >> word)) continue;
      if (word != "include") {
        word.resize(std::min(word.find('='), word.size()));
        folders_.push_back(insideRoot(word));
        continue;
      }
      while (words >> word) include(word.starts_with('/') ? word : "/etc/" + word);
    }
  }

 private:
  /// A pattern stands for files of one folder.
  void include(const std::string& pattern) {
    const std::size_t slash = pattern.rfind('/');
    const std::string folder = insideRoot(pattern.substr(0, slash));
    std::vector<std::string> names = root_.list(folder).value_or(std::vector<std::string>());
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      if (::fnmatch(pattern.c_str() + slash + 1, name.c_str(), FNM_PERIOD) == 0) {
        read(joined(folder, name));
      }
    }
  }

  const RootFolder& root_;
  std::vector<std::string>& folders_;
  std::set<std::string> seen_;
};

}  // namespace

std::vector<std::string> libraryFolders(const RootFolder& root) {
  std::vector<std::string> folders;
  for (const char* const parent : {"/lib", "/usr/lib"}) {
    folders.emplace_back(parent);
    folders.push_back(std::string(parent) + "64");
    for (const std::string& name : root.list(parent).value_or(std::vector<std::string>())) {
      // "x86_64-linux-gnu"
      if (name.find("-linux-") != std::string::npos) folders.push_back(joined(parent, name));
    }
  }
  Configuration(root, folders).read("/etc/ld.so.conf");
  return folders;
}

}  // namespace bootforge::analyze
