#include "catalogue/discovery.h"

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <boost/regex.hpp>
#include <iterator>
#include <memory>
#include <vector>

#include "platform/log.h"
#include "plugins/debug_configuration.h"
#include "plugins/debug_plugin.h"
#include "plugins/json_plugin.h"
#include "plugins/native_plugin.h"
#include "util/system_alert.h"

namespace bootforge {
namespace {

/// Keeps a plugin that is left out: milestones are tied to it, so it has to outlive the run.
void retire(std::unique_ptr<Plugin> plugin) {
  static auto* const retired = new std::vector<std::unique_ptr<Plugin>>;
  plugin->markForwardDone();
  retired->push_back(std::move(plugin));
}

/// Each flag followed by one blank.
std::string listOf(const std::vector<std::string>& flags) {
  std::string text;
  for (const std::string& flag : flags) text += flag + ' ';
  return text;
}

bool isDenied(const std::string& baseName, const RunOptions& options) {
  const auto& denied = options.disabledPlugins;
  if (std::find(denied.begin(), denied.end(), baseName) == denied.end()) return false;
  Log_Level(5, "ignoring plugin '%s' due to denylist.\n", baseName.c_str());
  return true;
}

/// Says what in the boot flags is against a plugin; both reasons are told where both hold.
bool isDisabledByFlags(const Plugin& plugin, const std::set<std::string>& bootFlags) {
  std::vector<std::string> disabling;
  std::set_intersection(bootFlags.begin(), bootFlags.end(), plugin.disablingFlags().begin(),
                        plugin.disablingFlags().end(), std::back_inserter(disabling));
  if (!disabling.empty()) {
    Log_Level(3, "ignoring plugin '%s', disabled due to boot flags: %s.\n", plugin.name().c_str(),
              listOf(disabling).c_str());
  }
  std::vector<std::string> missing;
  std::set_difference(plugin.requiredFlags().begin(), plugin.requiredFlags().end(),
                      bootFlags.begin(), bootFlags.end(), std::back_inserter(missing));
  if (!missing.empty()) {
    Log_Level(3, "ignoring plugin '%s', disabled due to missing required boot flags: %s.\n",
              plugin.name().c_str(), listOf(missing).c_str());
  }
  return !disabling.empty() || !missing.empty();
}

/// The record is asked for the key as it is and told a cleaned one: a plugin whose name or version
/// holds an unusual character runs every time.
void applyRunOnce(Plugin& plugin, std::set<std::string>& runOnce) {
  const std::string key = plugin.name() + plugin.pluginVersion();
  if (runOnce.contains(key)) {
    Log_Level(5, "ignoring plugin '%s' because version '%s'  has already been run.\n",
              plugin.name().c_str(), plugin.pluginVersion().c_str());
    plugin.markForwardDone();
    return;
  }
  static const boost::regex unusual("[^-a-zA-Z0-9._+]");
  runOnce.insert(boost::regex_replace(key, unusual, ""));
}

void discover(const std::string& fileName, PluginList& plugins,
              const std::set<std::string>& bootFlags, std::set<std::string>& runOnce,
              const RunOptions& options) {
  const std::string path = (boost::filesystem::path(options.pluginDirectory) / fileName).string();
  const std::size_t dot = fileName.rfind('.');
  if (dot == std::string::npos) {
    Log_Level(3, "ignoring plugin '%s' of unspecified type...\n", fileName.c_str());
    return;
  }
  const std::string extension = fileName.substr(dot + 1);
  std::string baseName = fileName.substr(0, dot);
  const std::list<DebugEntry> injections = loadDebugEntries();
  if (baseName.starts_with("lib")) baseName.erase(0, 3);

  std::unique_ptr<Plugin> plugin;
  if (extension == "so") {
    plugin = std::make_unique<NativePlugin>(baseName, path);
  } else if (extension == "json") {
    plugin = std::make_unique<JSONPlugin>(baseName, path);
  } else if (extension == "debug") {
    for (const DebugEntry& entry : injections) {
      if (entry.name == baseName) plugins.push_back(makeDebugPlugin(entry));
    }
    return;
  } else {
    Log_Level(3, "ignoring plugin '%s' of unknown type (%s)...\n", fileName.c_str(),
              extension.c_str());
    return;
  }

  if (isDenied(baseName, options) || isDisabledByFlags(*plugin, bootFlags)) {
    retire(std::move(plugin));
    return;
  }
  plugins.push_back(std::move(plugin));
  if (plugins.back()->runOnce()) applyRunOnce(*plugins.back(), runOnce);
}

void report(const std::string& message) {
  raiseSystemAlert(message);
  Log_Level(3, "%s\n", message.c_str());
}

}  // namespace

void discoverPlugin(const std::string& fileName, PluginList& plugins,
                    const std::set<std::string>& bootFlags, std::set<std::string>& runOnce,
                    const RunOptions& options) {
  try {
    discover(fileName, plugins, bootFlags, runOnce, options);
  } catch (const std::exception& error) {
    report("exception occurred whilst loading plugin " + fileName + ": " + error.what());
  } catch (...) {
    report("unknown exception occurred whilst loading plugin " + fileName);
  }
}

}  // namespace bootforge
