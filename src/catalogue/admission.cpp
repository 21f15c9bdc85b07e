#include "catalogue/admission.h"

#include <algorithm>
#include <boost/regex.hpp>
#include <iterator>

namespace bootforge {

std::string runOnceKey(const Plugin& plugin) { return plugin.name() + plugin.pluginVersion(); }

std::string cleanedRunOnceKey(const std::string& key) {
  static const boost::regex unusual("[^-a-zA-Z0-9._+]");
  return boost::regex_replace(key, unusual, "");
}

Admission admit(std::unique_ptr<Plugin> plugin, const std::string& baseName, Selection& selection,
                Catalogue& catalogue) {
  Admission admission;
  admission.plugin = plugin.get();
  const std::list<std::string>& denied = selection.denied;
  admission.isDenied = std::find(denied.begin(), denied.end(), baseName) != denied.end();
  if (!admission.isDenied) {
    const std::set<std::string>& flags = selection.bootFlags;
    const std::set<std::string>& disabling = plugin->disablingFlags();
    const std::set<std::string>& required = plugin->requiredFlags();
    std::set_intersection(flags.begin(), flags.end(), disabling.begin(), disabling.end(),
                          std::back_inserter(admission.disabling));
    std::set_difference(required.begin(), required.end(), flags.begin(), flags.end(),
                        std::back_inserter(admission.missing));
  }
  if (admission.isLeftOut()) {
    plugin->markForwardDone();
    catalogue.leftOut.push_back(std::move(plugin));
    return admission;
  }
  catalogue.plugins.push_back(std::move(plugin));
  if (!admission.plugin->runOnce()) return admission;
  const std::string key = runOnceKey(*admission.plugin);
  admission.hasRunAlready = selection.runOnce.contains(key);
  if (admission.hasRunAlready) {
    admission.plugin->markForwardDone();
  } else {
    selection.runOnce.insert(cleanedRunOnceKey(key));
  }
  return admission;
}

}  // namespace bootforge
