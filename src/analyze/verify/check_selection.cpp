#include <algorithm>
#include <set>
#include <unordered_map>

#include "analyze/image/left_out.h"
#include "analyze/verify/checks.h"

namespace bootforge::analyze {
namespace {

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

void checkFlags(const PluginFile& file, Reporter& reporter) {
  const Plugin& plugin = *file.admission.plugin;
  TextReporter text(reporter, file.path, file.text);
  std::set<std::string> told;
  for (const std::string& flag : plugin.disablingFlags()) {
    if (!plugin.requiredFlags().contains(flag) || !told.insert(flag).second) continue;
    const std::string message =
        "the flag " + quoted(flag) + " is required, and disables the plugin";
    const auto& list = file.description.disablingFlags;
    const auto place = std::find_if(list.begin(), list.end(), [&flag](const PlacedString& other) {
      return other.text == flag;
    });
    if (place == list.end()) {
      reporter.add("flags-contradict", file.path, plugin.name(), message);
    } else {
      text.add("flags-contradict", place->at, plugin.name(), message);
    }
  }
}

}  // namespace

void checkSelection(const Image& image, Reporter& reporter) {
  std::unordered_map<std::string, const PluginFile*> byKey;
  for (const PluginFile& file : image.files()) {
    if (!file.hasPlugin()) continue;
    const Plugin& plugin = *file.admission.plugin;
    checkFlags(file, reporter);
    if (!file.takesPart()) {
      reporter.add("plugin-left-out", file.path, plugin.name(),
                   "the plugin does not run: " + reasonLeftOut(file.admission));
    }
    if (!plugin.runOnce()) continue;
    const std::string key = runOnceKey(plugin);
    const std::string cleaned = cleanedRunOnceKey(key);
    if (cleaned != key) {
      reporter.add("run-once-unusual", file.path, plugin.name(),
                   "the run-once key " + quoted(key) + " is kept as " + quoted(cleaned) +
                       ", so the plugin runs every time");
    }
    // The record outlives the boot, and with it the flags by which one of them is left out now.
    const auto [first, isNew] = byKey.emplace(cleaned, &file);
    if (isNew) continue;
    reporter.add("run-once-collision", file.path, plugin.name(),
                 "the run-once key " + quoted(cleaned) + " is also that of " + first->second->path);
  }
}

}  // namespace bootforge::analyze
