#include "analyze/image/image.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include "analyze/image/init_folder.h"
#include "analyze/image/loader.h"
#include "catalogue/init_scripts.h"
#include "plugins/debug_plugin.h"
#include "plugins/exceptions.h"
#include "plugins/json_plugin.h"
#include "plugins/legacy_daemon_plugin.h"
#include "plugins/native_plugin.h"

namespace bootforge::analyze {
namespace {

template <typename Items>
const auto* itemOf(const std::unordered_map<const Node*, std::size_t>& places, const Items& items,
                   const Node& node) {
  const auto place = places.find(&node);
  return place == places.end() ? nullptr : &items[place->second];
}

}  // namespace

Image::Image(const ImageOptions& options)
    : options_(options),
      root_(options.root),
      pluginDirectory_(insideRoot(options.pluginDirectory)) {
  readScripts();
  if (options_.daemons) {
    linkScripts();
  } else {
    readPlugins();
  }
}

bool Image::isEnumerated() const {
  if (options_.daemons) return true;
  const bool hasBadEscape =
      std::any_of(debugLines_.begin(), debugLines_.end(),
                  [](const DebugLine& line) { return !line.badEscape.empty(); });
  return pluginDirectoryError_ == 0 && !hasBadEscape;
}

void Image::readPlugins() {
  debugText_ = root_.read(kDebugConfiguration);
  if (debugText_) debugLines_ = readDebugConfiguration(*debugText_);
  const bool isWholeFolder = options_.plugins.empty();
  if (isWholeFolder) {
    const UniqueFd folder = root_.open(pluginDirectory_, O_RDONLY | O_DIRECTORY);
    const std::optional<std::vector<std::string>> names = root_.list(pluginDirectory_);
    if (!names) {
      pluginDirectoryError_ = errno;
      return;
    }
    files_.reserve(names->size());
    for (const std::string& name : *names) readFile(name, &folder);
  } else {
    files_.reserve(options_.plugins.size());
    for (const std::string& name : options_.plugins) readFile(name, nullptr);
  }
  // Which machine the image is for, all of its plugins tell together.
  judgeAsLoader(root_, files_);
  for (PluginFile& file : files_) link(file);
  if (!isWholeFolder) return;
  for (const DebugLine& line : debugLines_) {
    if (line.entry) addInjection(line);
  }
}

void Image::readFile(const std::string& name, const UniqueFd* folder) {
  PluginFile& file = files_.emplace_back();
  file.name = name;
  file.path = joined(pluginDirectory_, name);
  file.entry = entryOf(name);
  const bool isRead =
      file.entry.kind == Entry::Kind::Json || file.entry.kind == Entry::Kind::Native;
  if (!isRead) {
    file.status = root_.status(file.path);
    return;
  }
  FileStatus status;
  std::optional<std::string> text = folder != nullptr
                                        ? root_.readEntry(*folder, name, file.path, &status)
                                        : root_.read(file.path, &status);
  if (!text) file.error = errno;
  if (text || status.mode != 0) file.status = status;
  if (!text) return;
  if (file.entry.kind == Entry::Kind::Native) {
    file.native = readNativeObject(*text);
    return;
  }
  const JsonText json(*std::move(text));
  file.text = json.text();
  file.syntaxError = json.error();
  file.syntaxErrorAt = json.errorAt();
  file.description = readDescription(json);
  file.remarks = remarksOn(json, file.description);
}

/// Adds what a boot would make of a file.
void Image::link(PluginFile& file) {
  const std::string& name = file.entry.baseName;
  if (file.entry.kind == Entry::Kind::Debug) {
    for (const DebugLine& line : debugLines_) {
      if (line.entry && line.entry->name == name) addInjection(line);
    }
  }
  if (file.error != 0) return;
  if (file.entry.kind == Entry::Kind::Native) {
    const bool isLoaded = file.unloadable.empty() && file.missingLibraries.empty();
    if (!isLoaded || !file.native.isGood()) return;
    admitPlugin(file, std::make_unique<NativePlugin>(name, file.path, file.native.record,
                                                     catalogue_.barriers));
  } else if (file.entry.kind == Entry::Kind::Json) {
    try {
      admitPlugin(file, std::make_unique<JSONPlugin>(name, file.path, file.description,
                                                     catalogue_.barriers));
    } catch (const InvalidPluginException&) {
      // Its faults stand in the description.
    }
  }
}

void Image::admitPlugin(PluginFile& file, std::unique_ptr<Plugin> plugin) {
  file.admission = admit(std::move(plugin), file.entry.baseName, options_.selection, catalogue_);
  fileOfNode_[file.admission.plugin] = static_cast<std::size_t>(&file - files_.data());
}

void Image::addInjection(const DebugLine& line) {
  catalogue_.plugins.push_back(std::make_unique<DebugPlugin>(*line.entry, catalogue_.barriers));
  debugLineOfNode_[catalogue_.plugins.back().get()] =
      static_cast<std::size_t>(&line - debugLines_.data());
}

void Image::readScripts() {
  scripts_ =
      options_.initList ? listedInitScripts(root_, *options_.initList) : findInitScripts(root_);
}

void Image::linkScripts() {
  std::multimap<std::int32_t, std::size_t> byPriority;
  for (std::size_t i = 0; i < scripts_.size(); ++i) {
    if (scripts_[i].priority) byPriority.emplace(*scripts_[i].priority, i);
  }
  for (const auto& [priority, index] : byPriority) {
    const InitScript& script = scripts_[index];
    if (isStartedByBoot(script.name)) continue;
    catalogue_.plugins.push_back(std::make_unique<LegacyDaemonPlugin>(
        script.name, script.path, priority, catalogue_.barriers));
    scriptOfNode_[catalogue_.plugins.back().get()] = index;
  }
}

const PluginFile* Image::fileOf(const Node& node) const {
  return itemOf(fileOfNode_, files_, node);
}

const DebugLine* Image::debugLineOf(const Node& node) const {
  return itemOf(debugLineOfNode_, debugLines_, node);
}

const InitScript* Image::scriptOf(const Node& node) const {
  return itemOf(scriptOfNode_, scripts_, node);
}

}  // namespace bootforge::analyze
