#include "analyze/recorded/dependencies.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <unordered_map>

#include "graph/priority_barrier.h"

namespace bootforge::analyze {
namespace {

void addOnce(std::vector<std::size_t>& list, std::size_t entry) {
  if (std::find(list.begin(), list.end(), entry) == list.end()) list.push_back(entry);
}

}  // namespace

Dependencies::Dependencies(const std::vector<const KnownPlugin*>& plugins)
    : links_(plugins.size()) {
  std::map<std::uint32_t, std::size_t> levels;
  for (const KnownPlugin* const plugin : plugins) {
    if (plugin != nullptr && plugin->kind == KnownPlugin::Kind::Script) levels[plugin->level] = 0;
  }
  for (auto& [level, gate] : levels) {
    gate = gates_.size();
    gates_.push_back({priorityBarrierName(level), {}});
  }
  std::unordered_map<std::string_view, std::size_t> milestones;
  const auto gateOf = [&](const std::string& milestone) {
    const auto [place, isNew] = milestones.try_emplace(milestone, gates_.size());
    if (isNew) gates_.push_back({milestone, {}});
    return place->second;
  };
  for (std::size_t index = 0; index < plugins.size(); ++index) {
    const KnownPlugin* const plugin = plugins[index];
    if (plugin == nullptr) continue;
    Links& links = links_[index];
    if (plugin->kind == KnownPlugin::Kind::Script) {
      links.lowerLevels = levels[plugin->level];
      links.provided.push_back(links.lowerLevels);
    }
    for (const std::string& name : plugin->required) addOnce(links.required, gateOf(name));
    for (const std::string& name : plugin->provided) addOnce(links.provided, gateOf(name));
    for (const std::size_t gate : links.provided) gates_[gate].providers.push_back(index);
  }
}

}  // namespace bootforge::analyze
