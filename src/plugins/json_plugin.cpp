#include "plugins/json_plugin.h"

#include <cerrno>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "cli/hypcli_executor.h"
#include "platform/log.h"
#include "plugins/exceptions.h"
#include "reading/description.h"
#include "util/regular_file.h"

namespace bootforge {
namespace {

Description readDescriptionFile(const std::string& path) {
  std::optional<std::string> text = readRegularFile(path.c_str());
  if (!text) {
    throw InvalidPluginException(path, unreadableDescription(errno));
  }
  return readDescription(JsonText(*std::move(text)));
}

void takeFlags(Description::Strings& list, std::set<std::string>* flags) {
  for (PlacedString& flag : list) flags->insert(std::move(flag.text));
}

}  // namespace

JSONPlugin::JSONPlugin(std::string name, const std::string& path, BarrierRegistry& barriers)
    : JSONPlugin(std::move(name), path, readDescriptionFile(path), barriers) {}

JSONPlugin::JSONPlugin(std::string name, const std::string& path, Description description,
                       BarrierRegistry& barriers)
    : Plugin(std::move(name)) {
  ScopedLock lock(graphLock);  // Once for all milestones.
  // What comes before the first fault is linked all the same: its milestones stay registered.
  if (description.isGoodUpTo(Description::Part::Requires)) {
    for (const PlacedString& milestone : description.requires_) require(barriers, milestone.text);
  }
  if (description.isGoodUpTo(Description::Part::Provides)) {
    for (const PlacedString& milestone : description.provides) provide(barriers, milestone.text);
  }
  if (!description.faults.empty()) {
    throw InvalidPluginException(path, description.faults.front().reason);
  }
  apiVersion_ = description.apiVersion.value();
  takeFlags(description.requiredFlags, &requiredFlags_);
  takeFlags(description.disablingFlags, &disablingFlags_);
  runOnce_ = description.runOnce;
  pluginVersion_ = std::move(description.pluginVersion);
  startCommands_ = std::move(description.startCommands);
  applyHostProfileCommands_ = std::move(description.applyHostProfileCommands);
}

void JSONPlugin::start() { runCommands("start", startCommands_); }

bool JSONPlugin::supportsApplyHostProfile() const {
  return apiVersion_ > 1 && applyHostProfileCommands_.has_value();
}

void JSONPlugin::applyHostProfile() {
  // An invocation of the method calls this for plugins without one, too.
  if (applyHostProfileCommands_) runCommands("apply_host_profile", *applyHostProfileCommands_);
}

void JSONPlugin::runCommands(const char* method, const Description::Strings& commands) {
  std::size_t failures = 0;
  for (const PlacedString& command : commands) {
    try {
      HypcliExecutor::instance().runCommand(command.text);
    } catch (const std::exception& error) {
      Log_Level(2, "%s\n", error.what());
      ++failures;
    } catch (...) {
      ++failures;
    }
  }
  if (failures != 0) throw MethodFailedException(name(), method, "error while executing the cli");
}

}  // namespace bootforge
