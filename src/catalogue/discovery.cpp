#include "catalogue/discovery.h"

#include <boost/filesystem/path.hpp>
#include <memory>
#include <vector>

#include "catalogue/entry.h"
#include "platform/log.h"
#include "plugins/debug_configuration.h"
#include "plugins/debug_plugin.h"
#include "plugins/json_plugin.h"
#include "plugins/native_plugin.h"
#include "util/system_alert.h"

namespace bootforge {
namespace {

/// Each flag followed by one blank.
std::string listOf(const std::vector<std::string>& flags) {
  std::string text;
  for (const std::string& flag : flags) text += flag + ' ';
  return text;
}

/// Says in the log what is against a plugin.
void logAdmission(const Admission& admission, const std::string& baseName) {
  const Plugin& plugin = *admission.plugin;
  if (admission.isDenied) {
    Log_Level(5, "ignoring plugin '%s' due to denylist.\n", baseName.c_str());
  }
  if (!admission.disabling.empty()) {
    Log_Level(3, "ignoring plugin '%s', disabled due to boot flags: %s.\n", plugin.name().c_str(),
              listOf(admission.disabling).c_str());
  }
  if (!admission.missing.empty()) {
    Log_Level(3, "ignoring plugin '%s', disabled due to missing required boot flags: %s.\n",
              plugin.name().c_str(), listOf(admission.missing).c_str());
  }
  if (admission.hasRunAlready) {
    Log_Level(5, "ignoring plugin '%s' because version '%s'  has already been run.\n",
              plugin.name().c_str(), plugin.pluginVersion().c_str());
  }
}

/// The plugin of a file, or null for a file that has none.
std::unique_ptr<Plugin> makePlugin(const Entry& entry, const std::string& fileName,
                                   const std::string& path, BarrierRegistry& barriers) {
  switch (entry.kind) {
    case Entry::Kind::Native:
      return std::make_unique<NativePlugin>(entry.baseName, path, barriers);
    case Entry::Kind::Json:
      return std::make_unique<JSONPlugin>(entry.baseName, path, barriers);
    case Entry::Kind::Debug:
      break;
    case Entry::Kind::UnknownType:
      Log_Level(3, "ignoring plugin '%s' of unknown type (%s)...\n", fileName.c_str(),
                entry.extension.c_str());
      break;
    case Entry::Kind::NoType:
      Log_Level(3, "ignoring plugin '%s' of unspecified type...\n", fileName.c_str());
      break;
  }
  return nullptr;
}

void discover(const std::string& fileName, const std::string& pluginDirectory, Selection& selection,
              Catalogue& catalogue) {
  const boost::filesystem::path path = boost::filesystem::path(pluginDirectory) / fileName;
  const Entry entry = entryOf(fileName);
  // The injections are loaded for every file that has a type: a bad escape is that file's failure.
  if (entry.kind != Entry::Kind::NoType) {
    for (const DebugEntry& injection : loadDebugEntries()) {
      if (entry.kind != Entry::Kind::Debug || injection.name != entry.baseName) continue;
      catalogue.plugins.push_back(std::make_unique<DebugPlugin>(injection, catalogue.barriers));
    }
  }
  std::unique_ptr<Plugin> plugin = makePlugin(entry, fileName, path.native(), catalogue.barriers);
  if (!plugin) return;

  logAdmission(admit(std::move(plugin), entry.baseName, selection, catalogue), entry.baseName);
}

void report(const std::string& message) {
  raiseSystemAlert(message);
  Log_Level(3, "%s\n", message.c_str());
}

}  // namespace

void discoverPlugin(const std::string& fileName, const std::string& pluginDirectory,
                    Selection& selection, Catalogue& catalogue) {
  try {
    discover(fileName, pluginDirectory, selection, catalogue);
  } catch (const std::exception& error) {
    report("exception occurred whilst loading plugin " + fileName + ": " + error.what());
  } catch (...) {
    report("unknown exception occurred whilst loading plugin " + fileName);
  }
}

}  // namespace bootforge
