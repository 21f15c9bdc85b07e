#include "analyze/image/init_folder.h"

#include <algorithm>

#include "reading/init_scripts.h"

namespace bootforge::analyze {
namespace {

constexpr const char* kRunLevels[] = {"/etc/rc3.d", "/etc/rc2.d"};
constexpr std::size_t kLongestHead = 256;

std::string fileNameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// What can be said of a script whatever its priority is; its text is passed on.
InitScript describe(const RootFolder& root, const std::string& name, const std::string& path,
                    std::string* text) {
  InitScript script;
  script.name = name;
  script.path = path;
  const bool isLink = path == joined(kLauncherLinks, name);
  script.script = isLink ? joined(kInitFolder, name) : path;
  script.hasLauncher = root.readLink(joined(kLauncherLinks, name)) == kLauncher;
  FileStatus status;
  *text = root.read(script.script, &status).value_or("");
  if (status.mode != 0) script.status = status;
  script.head = text->substr(0, std::min(text->find('\n'), kLongestHead));
  script.hasLsbHeader = hasLsbHeader(*text);
  return script;
}

/// The run levels' links, read once.
class RunLevels {
 public:
  explicit RunLevels(const RootFolder& root) {
    for (const char* level : kRunLevels) {
      if (auto names = root.list(level)) levels_.push_back(*std::move(names));
    }
  }

  std::optional<int> priorityOf(const std::string& name) const {
    for (const std::vector<std::string>& links : levels_) {
      for (const std::string& link : links) {
        if (const auto number = startNumberOf(link, name)) return number;
      }
    }
    return std::nullopt;
  }

 private:
  std::vector<std::vector<std::string>> levels_;
};

}  // namespace

std::vector<InitScript> findInitScripts(const RootFolder& root) {
  std::vector<InitScript> scripts;
  std::vector<std::string> names = root.list(kInitFolder).value_or(std::vector<std::string>());
  std::sort(names.begin(), names.end());
  const RunLevels levels(root);
  for (const std::string& name : names) {
    std::string text;
    InitScript script = describe(root, name, joined(kInitFolder, name), &text);
    const bool canBeListed = name.find_first_of(" \t\n\v\f\r") == std::string::npos;
    if (!script.status || !script.status->isRegular() || !canBeListed) continue;
    std::optional<int> priority = startPriorityIn(text);
    if (!priority) priority = levels.priorityOf(name);
    if (!priority) continue;
    if (script.status->isExecutable()) script.priority = priority;
    if (script.hasLauncher) script.path = joined(kLauncherLinks, name);
    scripts.push_back(std::move(script));
  }
  return scripts;
}

std::vector<InitScript> listedInitScripts(const RootFolder& root, const std::string& list) {
  std::vector<InitScript> scripts;
  for (const InitListLine& line : readInitList(list)) {
    std::string text;
    scripts.push_back(describe(root, fileNameOf(line.path), line.path, &text));
    scripts.back().priority = line.priority;
  }
  return scripts;
}

}  // namespace bootforge::analyze
