// Who waits for whom among the plugins of a boot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "analyze/recorded/known_plugin.h"

namespace bootforge::analyze {

/// What stands between plugins: a milestone, or a level of init scripts. Every one of its requirers
/// waits for every one of its providers, itself excepted.
struct Gate {
  std::string name;
  std::vector<std::size_t> providers;  // indices of plugins, ascending
};

/// The gates of a list of plugins. A plugin of many milestones with many providers costs no more
/// than their number: edges from plugin to plugin are not written out.
class Dependencies {
 public:
  Dependencies() = default;
  /// The description of each plugin of the list; null for one without.
  explicit Dependencies(const std::vector<const KnownPlugin*>& plugins);

  const std::vector<Gate>& gates() const { return gates_; }
  const std::vector<std::size_t>& provided(std::size_t plugin) const {
    return links_[plugin].provided;
  }

  /// Calls visit(gate) for each gate that a plugin waits for: milestones in the order of the
  /// description, levels from the lowest up to the one below the script's own.
  template <typename Visit>
  void forEachRequired(std::size_t plugin, Visit visit) const {
    for (const std::size_t gate : links_[plugin].required) visit(gate);
    for (std::size_t gate = 0; gate < links_[plugin].lowerLevels; ++gate) visit(gate);
  }

 private:
  struct Links {
    std::vector<std::size_t> required;
    std::vector<std::size_t> provided;
    std::size_t lowerLevels = 0;  // it waits for the first so many gates, which are levels
  };
  std::vector<Gate> gates_;  // levels first, ascending; then milestones as they are named
  std::vector<Links> links_;
};

}  // namespace bootforge::analyze
