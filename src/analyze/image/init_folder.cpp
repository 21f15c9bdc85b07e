#include "analyze/image/init_folder.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "reading/init_scripts.h"

namespace bootforge::analyze {
namespace {

constexpr const char* kRunLevels[] = {"/etc/rc3.d", "/etc/rc2.d"};
constexpr std::size_t kLongestHead = 256;

std::string fileNameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// What can be said of a script whatever its priority is; its text is passed on.
InitScript describe(const RootFolder& root, const std::string& name, const std::string& path,
                    std::string* text, std::vector<std::string>* unread) {
  InitScript script;
  script.name = name;
  script.path = path;
  const bool isLink = path == joined(kLauncherLinks, name);
  script.script = isLink ? joined(kInitFolder, name) : path;
  script.hasLauncher = root.readLink(joined(kLauncherLinks, name)) == kLauncher;
  FileStatus status;
  std::optional<std::string> content = root.read(script.script, &status);
  if (!content && errno == EACCES) {
    script.isUnread = true;
    unread->push_back(insideRoot(script.script));
    script.status = root.status(script.script);  // takes no permission to read it
  }
  *text = std::move(content).value_or("");
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

std::vector<InitScript> findInitScripts(const RootFolder& root, std::vector<std::string>* unread) {
  std::vector<InitScript> scripts;
  std::optional<std::vector<std::string>> listed = root.list(kInitFolder);
  if (!listed && errno == EACCES) unread->emplace_back(kInitFolder);
  std::vector<std::string> names = std::move(listed).value_or(std::vector<std::string>());
  std::sort(names.begin(), names.end());
  const RunLevels levels(root);
  for (const std::string& name : names) {
    std::string text;
    InitScript script = describe(root, name, joined(kInitFolder, name), &text, unread);
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

std::vector<InitScript> listedInitScripts(const RootFolder& root, const std::string& list,
                                          std::vector<std::string>* unread) {
  std::vector<InitScript> scripts;
  for (const InitListLine& line : readInitList(list)) {
    std::string text;
    scripts.push_back(describe(root, fileNameOf(line.path), line.path, &text, unread));
    scripts.back().priority = line.priority;
  }
  return scripts;
}

}  // namespace bootforge::analyze
