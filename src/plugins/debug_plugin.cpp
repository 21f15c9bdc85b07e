#include "plugins/debug_plugin.h"

#include "platform/log.h"
#include "plugins/exceptions.h"
#include "util/shell.h"

namespace bootforge {

DebugPlugin::DebugPlugin(std::string name, const std::list<std::string>& provides,
                         const std::list<std::string>& requires_, std::string command)
    : Plugin(std::move(name)), command_(std::move(command)) {
  for (const std::string& milestone : provides) provide(milestone);
  for (const std::string& milestone : requires_) require(milestone);
  apiVersion_ = 1;
}

void DebugPlugin::start() {
  const int status = runShell(command_);
  if (status == 0) return;
  Log_Level(5, "debug injection '%s' returned %#08x\n", name().c_str(),
            static_cast<unsigned>(status));
}

void DebugPlugin::applyHostProfile() {
  throw NotImplementedException("DebugPlugin::ApplyHostProfile");
}

std::unique_ptr<DebugPlugin> makeDebugPlugin(const DebugEntry& entry) {
  return std::make_unique<DebugPlugin>(entry.name, entry.provides, entry.requires_, entry.command);
}

}  // namespace bootforge
