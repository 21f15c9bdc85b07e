#include "tools/adopt/plan.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "analyze/image/init_folder.h"
#include "reading/init_scripts.h"
#include "tools/adopt/host_tree.h"
#include "tools/adopt/inittab.h"
#include "tools/adopt/unit.h"
#include "util/exception.h"

namespace bootforge::adopt {
namespace {

using analyze::InitScript;
using analyze::RootFolder;

constexpr const char* kInit = "/sbin/init";
constexpr const char* kInittab = "/etc/inittab";
constexpr const char* kBootforge = BOOTFORGE_PROGRAM;
constexpr const char* kChkconfig = "/bin/chkconfig";
constexpr const char* kMkdir = "/bin/mkdir";

enum class Init { kSysvinit, kBusybox, kSystemd };

/// By what the program is called, and by what is written in it.
Init initOf(const RootFolder& root) {
  const std::string path = resolve(root, kInit);
  const std::optional<std::string> program = root.read(path);
  if (!program) throw Failure(kInit, errno);
  if (nameOf(path) == "systemd") return Init::kSystemd;
  // A busybox has many names, and the word of sysvinit is none of its.
  if (program->find("BusyBox") != std::string::npos) return Init::kBusybox;
  if (program->find("initdefault") != std::string::npos) return Init::kSysvinit;
  throw Exception(path + ": this init is neither sysvinit nor busybox nor systemd");
}

void checkInstalled(const RootFolder& root, const std::string& program) {
  const std::optional<analyze::FileStatus> status = root.status(program);
  if (status && status->isExecutable()) return;
  throw Exception(program + ": there is no such program; bootforge has to be installed first");
}

/// Nothing of somebody else's is in the way of what write() and a change make.
void checkFree(const Tree& tree, const std::string& path) {
  if (!tree.look(path).isThere()) return;
  throw Exception(path + ": this is in the way; move it elsewhere");
}

void addFolder(const Tree& tree, const std::string& path, std::vector<Step>& steps) {
  const bool isPlanned = std::any_of(steps.begin(), steps.end(), [&](const Step& step) {
    return step.kind == Step::Kind::kFolder && step.path == path;
  });
  if (isPlanned || tree.look(path).isFolder()) return;
  checkFree(tree, path);
  if (path != "/") addFolder(tree, folderOf(path), steps);
  steps.push_back({Step::Kind::kFolder, path, {}, {}, {}});
}

Step changeOf(const Tree& tree, const std::string& path, std::vector<Change> changes) {
  Step step{Step::Kind::kChange, path, {}, path + ".before-bootforge", std::move(changes)};
  checkFree(tree, step.original);
  checkFree(tree, temporaryName(path));
  return step;
}

Step fileOf(const Tree& tree, const std::string& path, std::string content) {
  checkFree(tree, path);
  checkFree(tree, temporaryName(path));
  return {Step::Kind::kFile, path, std::move(content), {}, {}};
}

std::vector<InitScript> scriptsOf(const RootFolder& root) {
  std::vector<std::string> unread;
  std::vector<InitScript> scripts = analyze::findInitScripts(root, &unread);
  if (!unread.empty()) throw Failure(unread.front(), EACCES);
  std::erase_if(scripts, [](const InitScript& script) { return !script.priority; });
  return scripts;
}

/// bootforge asks /bin/chkconfig for the scripts.
void addChkconfig(const RootFolder& root, const Tree& tree, std::vector<Step>& steps) {
  const std::string ours = std::string(folderOf(analyze::kLauncher)) + "/chkconfig";
  checkInstalled(root, ours);
  const std::string path = resolve(root, kChkconfig, false);
  const Entry entry = tree.look(path);
  if (!entry.isThere()) {
    steps.push_back({Step::Kind::kLink, path, ours, {}, {}});
  } else if (resolve(root, path) != resolve(root, ours)) {
    throw Exception(path +
                    ": this is another program, which bootforge would ask for the init "
                    "scripts; move it elsewhere");
  }
}

/// What rc would start at a level and bootforge does not, and the other way round.
std::vector<std::string> compareWithLevel(const RootFolder& root, char level,
                                          const std::vector<InitScript>& scripts) {
  const std::string folder = std::string("/etc/rc") + level + ".d";
  const std::vector<std::string> links = root.list(folder).value_or(std::vector<std::string>());
  if (links.empty()) return {};
  std::set<std::string> ofLevel;
  for (const std::string& link : links) {
    if (link.size() > 3 && startNumberOf(link, link.substr(3))) ofLevel.insert(link.substr(3));
  }
  std::vector<std::string> notes;
  for (const InitScript& script : scripts) {
    if (ofLevel.erase(script.name) == 0) {
      notes.push_back("/etc/init.d/" + script.name + ": bootforge starts it, and rc " + level +
                      " did not");
    }
  }
  for (const std::string& name : ofLevel) {
    notes.push_back("/etc/init.d/" + name + ": rc " + level +
                    " started it, and bootforge does not: it has no priority");
  }
  return notes;
}

Plan planForScripts(const RootFolder& root, const Tree& tree, Init init) {
  const std::vector<InitScript> scripts = scriptsOf(root);
  if (scripts.empty()) {
    throw Exception("/etc/init.d: no script has a priority, so there is nothing to start");
  }
  Plan plan;
  plan.record.init = init == Init::kBusybox ? "busybox" : "sysvinit";
  const Programs programs{kBootforge, root.status(kMkdir) ? kMkdir : "/usr/bin/mkdir"};
  checkInstalled(root, programs.mkdir);
  checkInstalled(root, analyze::kLauncher);
  plan.record.steps = missingLaunchers(root, tree);
  addChkconfig(root, tree, plan.record.steps);

  const std::string path = resolve(root, kInittab);
  const Entry inittab = tree.look(path);
  InittabPlan lines;
  if (!inittab.isThere() && init == Init::kBusybox) {
    const std::string text = defaultInittab();
    lines = planForBusybox(path, text, programs);
    plan.record.steps.push_back(fileOf(tree, path, changed(text, lines.changes)));
    return plan;
  }
  if (!inittab.isFile()) throw Failure(path, inittab.isThere() ? EINVAL : ENOENT);
  lines = init == Init::kBusybox ? planForBusybox(path, inittab.content, programs)
                                 : planForSysvinit(path, inittab.content, programs);
  plan.notes = compareWithLevel(root, lines.level, scripts);
  plan.record.steps.push_back(changeOf(tree, path, std::move(lines.changes)));
  return plan;
}

Plan planForSystemd(const RootFolder& root, const Tree& tree) {
  Plan plan;
  plan.record.init = "systemd";
  std::vector<Step>& steps = plan.record.steps;
  std::string target;
  for (const char* folder : kVendorUnits) {
    if (root.status(std::string(folder) + '/' + kUnitName)) {
      target = std::string(folder) + '/' + kUnitName;
      break;
    }
  }
  if (target.empty()) {
    target = std::string(kOwnUnits) + '/' + kUnitName;
    const std::string folder = resolve(root, kOwnUnits);
    addFolder(tree, folder, steps);
    steps.push_back(fileOf(tree, folder + '/' + kUnitName, unitText(kBootforge)));
  }
  const std::string wants = resolve(root, std::string(kOwnUnits) + '/' + kWants);
  addFolder(tree, wants, steps);
  const std::string link = wants + '/' + kUnitName;
  checkFree(tree, link);
  steps.push_back({Step::Kind::kLink, link, target, {}, {}});
  return plan;
}

}  // namespace

Plan planFor(const RootFolder& root, const Tree& tree) {
  const Init init = initOf(root);
  checkInstalled(root, kBootforge);
  return init == Init::kSystemd ? planForSystemd(root, tree) : planForScripts(root, tree, init);
}

std::vector<Step> missingLaunchers(const RootFolder& root, const Tree& tree) {
  std::vector<Step> steps;
  const std::string folder = resolve(root, analyze::kLauncherLinks);
  for (const analyze::InitScript& script : scriptsOf(root)) {
    const std::string path = folder + '/' + script.name;
    const Entry entry = tree.look(path);
    if (entry.isLinkTo(analyze::kLauncher)) continue;
    checkFree(tree, path);
    if (steps.empty()) addFolder(tree, folder, steps);
    steps.push_back({Step::Kind::kLink, path, analyze::kLauncher, {}, {}});
  }
  return steps;
}

}  // namespace bootforge::adopt
