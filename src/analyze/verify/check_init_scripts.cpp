#include "analyze/verify/checks.h"
#include "catalogue/init_scripts.h"

namespace bootforge::analyze {
namespace {

/// Why the kernel would not run what is in a script, or nothing.
std::string reasonAgainstText(const RootFolder& root, const std::string& head) {
  if (head.starts_with("\x7f"
                       "ELF"))
    return {};
  if (!head.starts_with("#!")) return "it has no interpreter line";
  // Up to the next blank, as the kernel reads it: a carriage return is part of the name.
  const std::size_t begin = head.find_first_not_of(" \t", 2);
  if (begin == std::string::npos) return "its interpreter line names no interpreter";
  const std::string interpreter = head.substr(begin, head.find_first_of(" \t", begin) - begin);
  const std::optional<FileStatus> status = root.status(interpreter);
  if (status && status->isExecutable()) return {};
  return "its interpreter " + interpreter + (status ? " is not executable" : " is missing");
}

/// Why a script cannot be run, or nothing.
std::string reasonAgainst(const RootFolder& root, const InitScript& script) {
  if (!script.status) return "there is no such file";
  if (!script.status->isRegular()) return "it is no regular file";
  const std::string reason = script.isUnread ? "" : reasonAgainstText(root, script.head);
  if (script.status->isExecutable()) return reason;
  return "it is not executable" + (reason.empty() ? "" : ", and " + reason);
}

}  // namespace

void checkInitScripts(const Image& image, Reporter& reporter) {
  for (const InitScript& script : image.scripts()) {
    const std::string reason = reasonAgainst(image.root(), script);
    if (!reason.empty()) {
      reporter.add("init-script-unrunnable", insideRoot(script.script), script.name,
                   "the init script cannot be run: " + reason);
    }
    if (script.hasLsbHeader && !script.hasLauncher && !isStartedByBoot(script.name)) {
      reporter.add("init-script-no-launcher", insideRoot(script.script), script.name,
                   "the init script has an LSB header and no launcher link");
    }
  }
}

}  // namespace bootforge::analyze
