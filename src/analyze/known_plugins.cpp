#include "analyze/known_plugins.h"

#include <utility>

#include "analyze/image/left_out.h"

namespace bootforge::analyze {
namespace {

/// Whether a boot of the image would find a host profile.
bool hasHostProfile(const Image& image) {
  return image.root().status("/etc/nimbus/hostprofile.xml").has_value() ||
         image.root().status("/etc/nimbus/hostprofile.xml.gz").has_value();
}

std::vector<std::string> textsOf(const Description::Strings& strings) {
  std::vector<std::string> texts;
  for (const PlacedString& string : strings) texts.push_back(string.text);
  return texts;
}

class PluginLister {
 public:
  explicit PluginLister(const Image& image)
      : image_(image), hasHostProfile_(hasHostProfile(image)) {}

  std::vector<KnownPlugin> list() {
    for (const auto& node : image_.catalogue().plugins) {
      if (const PluginFile* const file = image_.fileOf(*node)) {
        addFilesUpTo(*file);
      } else if (const DebugLine* const line = image_.debugLineOf(*node)) {
        addInjection(*line->entry);
      } else if (const InitScript* const script = image_.scriptOf(*node)) {
        addScript(*script);
      }
    }
    while (next_ < image_.files().size()) addFile(image_.files()[next_++]);
    return std::move(plugins_);
  }

 private:
  /// Those that are left out stand among the files only.
  void addFilesUpTo(const PluginFile& file) {
    while (next_ < image_.files().size()) {
      const PluginFile& current = image_.files()[next_++];
      addFile(current);
      if (&current == &file) return;
    }
  }

  void addFile(const PluginFile& file) {
    if (!file.hasPlugin()) return;
    KnownPlugin& plugin = plugins_.emplace_back();
    plugin.name = file.entry.baseName;
    if (file.entry.kind == Entry::Kind::Native) {
      plugin.kind = KnownPlugin::Kind::Native;
      plugin.required = file.native.record.requires_;
      plugin.provided = file.native.record.provides;
    } else {
      const Description& description = file.description;
      plugin.required = textsOf(description.requires_);
      plugin.provided = textsOf(description.provides);
      const auto& profileCommands = description.applyHostProfileCommands;
      plugin.hasCommands = profileCommands && hasHostProfile_ ? !profileCommands->empty()
                                                              : !description.startCommands.empty();
    }
    if (!file.takesPart()) plugin.leftOut = reasonLeftOut(file.admission);
  }

  void addInjection(const DebugEntry& entry) {
    KnownPlugin& plugin = plugins_.emplace_back();
    plugin.name = entry.name;
    plugin.kind = KnownPlugin::Kind::Debug;
    plugin.required = entry.requires_;
    plugin.provided = entry.provides;
  }

  void addScript(const InitScript& script) {
    KnownPlugin& plugin = plugins_.emplace_back();
    plugin.name = script.name;
    plugin.kind = KnownPlugin::Kind::Script;
    plugin.level = static_cast<std::uint32_t>(script.priority.value_or(0));
  }

  const Image& image_;
  const bool hasHostProfile_;
  std::size_t next_ = 0;  // the first file that has not been looked at
  std::vector<KnownPlugin> plugins_;
};

}  // namespace

std::vector<KnownPlugin> knownPlugins(const Image& image) { return PluginLister(image).list(); }

}  // namespace bootforge::analyze
