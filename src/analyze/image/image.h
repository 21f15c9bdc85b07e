// An image, read as a boot would read it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "analyze/image/native_object.h"
#include "analyze/image/root_folder.h"
#include "catalogue/admission.h"
#include "catalogue/catalogue.h"
#include "catalogue/entry.h"
#include "reading/debug_configuration.h"
#include "reading/description.h"
#include "reading/init_scripts.h"

namespace bootforge::analyze {

/// Which image, and what the boot would be told.
struct ImageOptions {
  std::string root = "/";
  std::string pluginDirectory = kDefaultPluginDirectory;
  Selection selection;
  std::vector<std::string> plugins;     // named ones; none means the plugin directory
  bool daemons = false;                 // the init scripts in place of the plugins
  std::optional<std::string> initList;  // the text of a list in place of the image's
};

/// A library that an object cannot be loaded without.
struct MissingLibrary {
  std::string name;
  std::string neededBy;  // the library that needs it; empty when the object itself does
};

/// A file of the plugin directory, or one that was named.
struct PluginFile {
  std::string name;  // the entry's
  std::string path;  // inside the root
  Entry entry;
  std::optional<FileStatus> status;
  int error = 0;  // why it could not be read; 0 when it could
  // What it says, for the kind that it is of.
  std::string text;
  std::string syntaxError;  // of JSON; empty for good JSON
  std::size_t syntaxErrorAt = 0;
  Description description;
  std::vector<DescriptionRemark> remarks;
  NativeObject native;
  /// Why the image's loader would not take a shared object, and libraries that it would miss.
  std::string unloadable;
  std::vector<MissingLibrary> missingLibraries;
  /// What became of its plugin; none (a null plugin) for a file that has none or is rejected.
  Admission admission;
  bool hasInjection = false;  // a .debug file of which debug injections have the name

  bool hasPlugin() const { return admission.plugin != nullptr; }
  bool takesPart() const {
    return hasPlugin() && !admission.isLeftOut() && !admission.hasRunAlready;
  }
};

/// An init script, listed or not.
struct InitScript {
  std::string name;
  std::string path;                      // as it is listed: the script, or its launcher link
  std::string script;                    // the script itself
  std::optional<std::int32_t> priority;  // none for a script that is not listed
  std::optional<FileStatus> status;      // of the script; none where there is none
  std::string head;                      // its first line, cut after 256 bytes
  bool hasLsbHeader = false;
  bool hasLauncher = false;
  bool isUnread = false;  // we may not read it: nothing is known of its text
};

/// All that was read, and the orchestrator's own nodes, linked as in a boot.
class Image {
 public:
  /// Reads the image. Throws Exception when the root cannot be read; everything else that is wrong
  /// stands in the image.
  explicit Image(const ImageOptions& options);

  const ImageOptions& options() const { return options_; }
  const RootFolder& root() const { return root_; }
  const std::string& pluginDirectory() const { return pluginDirectory_; }
  /// Why the plugin directory cannot be read; 0 when it can, or when plugins were named.
  int pluginDirectoryError() const { return pluginDirectoryError_; }
  const std::vector<PluginFile>& files() const { return files_; }

  const std::optional<std::string>& debugText() const { return debugText_; }
  const std::vector<DebugLine>& debugLines() const { return debugLines_; }
  /// Whether a boot gets past reading: an escape in the debug configuration, or a plugin directory
  /// that cannot be read, ends it before anything runs.
  bool isEnumerated() const;

  const std::vector<InitScript>& scripts() const { return scripts_; }

  /// What a boot reads and we may not: paths inside the root of what nothing else tells of.
  const std::vector<std::string>& unread() const { return unread_; }

  Catalogue& catalogue() { return catalogue_; }
  const Catalogue& catalogue() const { return catalogue_; }
  /// The file of a node; null for milestones, levels, scripts and injections.
  const PluginFile* fileOf(const Node& node) const;
  /// The line of an injection's node; null for others.
  const DebugLine* debugLineOf(const Node& node) const;
  const InitScript* scriptOf(const Node& node) const;

 private:
  void readPlugins();
  /// Reads what is in files_, on several threads when there are many.
  void readFiles(const UniqueFd& folder);
  /// Makes the plugin of a file that was read.
  void linkFile(std::size_t index);
  void admitPlugin(std::size_t index, std::unique_ptr<Plugin> plugin);
  void addInjection(const DebugLine& line);
  void readScripts();
  void linkScripts();

  ImageOptions options_;
  RootFolder root_;
  std::string pluginDirectory_;
  int pluginDirectoryError_ = 0;
  std::vector<PluginFile> files_;
  std::optional<std::string> debugText_;
  std::vector<DebugLine> debugLines_;
  std::vector<InitScript> scripts_;
  std::vector<std::string> unread_;
  Catalogue catalogue_;
  // By node: an index into the vector of its kind.
  std::unordered_map<const Node*, std::size_t> fileOfNode_;
  std::unordered_map<const Node*, std::size_t> debugLineOfNode_;
  std::unordered_map<const Node*, std::size_t> scriptOfNode_;
};

}  // namespace bootforge::analyze
