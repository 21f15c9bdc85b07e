#include "analyze/verify/checks.h"
#include "catalogue/init_scripts.h"

namespace bootforge::analyze {
namespace {

/// Why a script cannot be run, or nothing.
std::string reasonAgainst(const RootFolder& root, const InitScript& script) {
  if (!script.status) return "there is no such file";
  if (!script.status->isRegular()) return "it is no regular file";
  if (!script.status->isExecutable()) return "it is not executable";
  if (script.head.starts_with("\x7f"
                              "ELF"))
    return {};
  if (!script.head.starts_with("#!")) return "it has no interpreter line";
  const std::size_t begin = script.head.find_first_not_of(" \t", 2);
  if (begin == std::string::npos) return "its interpreter line names no interpreter";
  const std::size_t end = script.head.find_first_of(" \t\r", begin);
  const std::string interpreter = script.head.substr(begin, end - begin);
  const std::optional<FileStatus> status = root.status(interpreter);
  if (status && status->isExecutable()) return {};
  return "its interpreter " + interpreter + (status ? " is not executable" : " is missing");
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
