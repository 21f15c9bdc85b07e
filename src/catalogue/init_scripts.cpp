#include "catalogue/init_scripts.h"

#include <optional>
#include <string>
#include <utility>

#include "platform/log.h"
#include "reading/init_scripts.h"
#include "util/exception.h"
#include "util/regular_file.h"
#include "util/shell.h"
#include "util/system_error.h"

namespace bootforge {

bool isStartedByBoot(const std::string& name) { return name == "hvsyslogd" || name == "evtd"; }

InitScripts enumerateInitScripts() {
  constexpr const char* kTool = "/bin/chkconfig -p";
  InitScripts scripts;
  const ShellOutput tool(kTool);
  if (tool.error() != 0) {
    Log_Level(3, "unable to run %s: %s.\n", kTool, systemErrorText(tool.error()).c_str());
  }
  // A pipe in the place of a missing standard input is not read.
  if (tool.pipe().get() <= 0) return scripts;
  const std::optional<std::string> list = readAll(tool.pipe());
  if (!list) throw Exception("Failed obtaining list of init.d scripts");
  for (InitListLine& script : readInitList(*list)) {
    scripts.emplace(script.priority, std::move(script.path));
  }
  return scripts;
}

}  // namespace bootforge
