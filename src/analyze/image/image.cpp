#include "analyze/image/image.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <system_error>
#include <thread>
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

/// Reads a file of a kind that is read, and keeps what it says. Any thread.
void readPluginFile(const RootFolder& root, const UniqueFd& folder, PluginFile* file) {
  const Entry::Kind kind = file->entry.kind;
  if (kind != Entry::Kind::Json && kind != Entry::Kind::Native) {
    file->status = root.status(file->path);
    return;
  }
  FileStatus status;
  std::optional<std::string> text = folder ? root.readEntry(folder, file->name, file->path, &status)
                                           : root.read(file->path, &status);
  if (!text) file->error = errno;
  if (status.mode != 0) file->status = status;
  if (!text) return;
  if (kind == Entry::Kind::Native) {
    file->native = readNativeObject(*text);
    return;
  }
  const JsonText json(*std::move(text));
  file->text = json.text();
  file->syntaxError = json.error();
  file->syntaxErrorAt = json.errorAt();
  file->description = readDescription(json);
  file->remarks = remarksOn(json, file->description);
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
  if (!debugText_ && errno == EACCES) unread_.emplace_back(kDebugConfiguration);
  if (debugText_) debugLines_ = readDebugConfiguration(*debugText_);
  std::optional<std::vector<std::string>> names = options_.plugins;
  UniqueFd folder;
  if (options_.plugins.empty()) {
    folder = root_.open(pluginDirectory_, O_RDONLY | O_DIRECTORY);
    names = root_.list(pluginDirectory_);
    if (!names) {
      pluginDirectoryError_ = errno;
      return;
    }
  }
  files_.reserve(names->size());
  fileOfNode_.reserve(names->size());
  for (const std::string& name : *names) {
    PluginFile& file = files_.emplace_back();
    file.name = name;
    file.path = joined(pluginDirectory_, name);
    file.entry = entryOf(name);
  }
  readFiles(folder);
  // Which machine the image is for, all of its plugins tell together.
  judgeAsLoader(root_, files_);
  for (std::size_t i = 0; i < files_.size(); ++i) linkFile(i);
  if (!options_.plugins.empty()) return;
  for (const DebugLine& line : debugLines_) {
    if (line.entry) addInjection(line);
  }
}

void Image::readFiles(const UniqueFd& folder) {
  constexpr std::size_t kFilesAThread = 500;
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < files_.size(); i = next++) {
      readPluginFile(root_, folder, &files_[i]);
    }
  };
  const std::size_t wanted =
      std::min<std::size_t>(std::thread::hardware_concurrency(), files_.size() / kFilesAThread);
  std::vector<std::jthread> helpers;
  try {
    while (helpers.size() + 1 < wanted) helpers.emplace_back(work);
  } catch (const std::system_error&) {
    // Fewer do it as well.
  }
  work();
}

void Image::linkFile(std::size_t index) {
  PluginFile& file = files_[index];
  const std::string& name = file.entry.baseName;
  BarrierRegistry& barriers = catalogue_.barriers;
  if (file.entry.kind == Entry::Kind::Debug) {
    for (const DebugLine& line : debugLines_) {
      if (!line.entry || line.entry->name != name) continue;
      addInjection(line);
      file.hasInjection = true;
    }
  }
  if (file.error != 0) return;
  if (file.entry.kind == Entry::Kind::Json) {
    try {
      admitPlugin(index, std::make_unique<JSONPlugin>(name, file.path, file.description, barriers));
    } catch (const InvalidPluginException&) {
      // Its faults stand in the description.
    }
  } else if (file.entry.kind == Entry::Kind::Native && file.unloadable.empty() &&
             file.missingLibraries.empty() && file.native.isGood()) {
    admitPlugin(index,
                std::make_unique<NativePlugin>(name, file.path, file.native.record, barriers));
  }
}

void Image::admitPlugin(std::size_t index, std::unique_ptr<Plugin> plugin) {
  PluginFile& file = files_[index];
  fileOfNode_[plugin.get()] = index;
  file.admission = admit(std::move(plugin), file.entry.baseName, options_.selection, catalogue_);
}

void Image::addInjection(const DebugLine& line) {
  catalogue_.plugins.push_back(std::make_unique<DebugPlugin>(*line.entry, catalogue_.barriers));
  debugLineOfNode_[catalogue_.plugins.back().get()] =
      static_cast<std::size_t>(&line - debugLines_.data());
}

void Image::readScripts() {
  scripts_ = options_.initList ? listedInitScripts(root_, *options_.initList, &unread_)
                               : findInitScripts(root_, &unread_);
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
