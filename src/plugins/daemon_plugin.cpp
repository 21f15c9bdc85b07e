#include "plugins/daemon_plugin.h"

#include "platform/hvkctl.h"
#include "platform/log.h"
#include "plugins/daemon_command.h"
#include "plugins/exceptions.h"
#include "util/kernel_log.h"

namespace bootforge {

DaemonPlugin::DaemonPlugin(std::string name, std::int32_t priority, std::uint32_t schedulingClass)
    : Plugin(std::move(name), schedulingClass), priority_(priority) {}

void DaemonPlugin::run(Executor& executor) {
  HvkCtl::System::KernelProgressScreenImpl screen;
  screen.ProgressText("Starting service " + name());
  Plugin::run(executor);
  screen.Step();
}

void DaemonPlugin::runReverse(Executor& /*executor*/) {
  kernelLog("Deactivating Daemon %s.", name().c_str());
  Log_Level(5, "executing stop for daemon %s.\n", name().c_str());
  try {
    stop();
  } catch (const std::exception& error) {
    kernelLog("Daemon %s deactivation failed: %s", name().c_str(), error.what());
    return;
  }
  kernelLog("Daemon %s deactivated.", name().c_str());
}

void DaemonPlugin::perform(Operation operation) const {
  const auto command = operations_.find(operation);
  if (command == operations_.end()) {
    throw Exception(name() + " Daemon operations are not initialized");
  }
  runDaemonCommand(command->second);
}

void DaemonPlugin::start() {
  try {
    perform(kStart);
  } catch (const std::exception& error) {
    status_ = kStartFailed;
    Log_Level(3, "Bootforge failed to start: %s reason: %s\n", name().c_str(), error.what());
    throw MethodFailedException(name(), "start", error.what());
  }
  status_ = kStarted;
  Log_Level(5, "%s started.\n", name().c_str());
}

void DaemonPlugin::stop() {
  try {
    perform(kStop);
  } catch (const std::exception& error) {
    Log_Level(3, "Bootforge failed to stop: %s reason: %s\n", name().c_str(), error.what());
    throw;
  }
  status_ = kStopped;
  Log_Level(5, "%s stopped.\n", name().c_str());
}

void DaemonPlugin::applyHostProfile() {
  throw NotImplementedException("DaemonPlugin::ApplyHostProfile");
}

void DaemonPlugin::restart() { throw NotImplementedException("DaemonPlugin::Restart"); }

void DaemonPlugin::sslReset() { throw NotImplementedException("DaemonPlugin::SSLReset"); }

}  // namespace bootforge
