#include "analyze/recorded/waiting_cycle.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <numeric>

namespace bootforge::analyze {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

class CycleFinder {
 public:
  CycleFinder(const std::vector<KnownPlugin>& plugins, const Dependencies& dependencies,
              const std::vector<bool>& isWaiting)
      : plugins_(plugins), dependencies_(dependencies), isWaiting_(isWaiting) {}

  std::vector<std::string> find() {
    std::vector<std::size_t> starts(plugins_.size());
    std::iota(starts.begin(), starts.end(), std::size_t{0});
    std::stable_sort(starts.begin(), starts.end(), [this](std::size_t one, std::size_t other) {
      return plugins_[one].name < plugins_[other].name;
    });
    for (const std::size_t start : starts) {
      if (isWaiting_[start]) searchFrom(start);
    }
    return best_;
  }

 private:
  struct Step {
    std::size_t before = kNone;  // the plugin that waits for this one
    std::size_t gate = kNone;
    std::size_t length = 0;
  };

  /// Breadth first, through every gate once.
  void searchFrom(std::size_t start) {
    std::vector<Step> steps(plugins_.size());
    std::vector<bool> passed(dependencies_.gates().size());
    std::deque<std::size_t> queue = {start};
    bool found = false;
    while (!queue.empty() && !found) {
      const std::size_t plugin = queue.front();
      queue.pop_front();
      const std::size_t length = steps[plugin].length + 1;
      // A cycle is told as each of its plugins and the milestone behind it, and the first again.
      if (!best_.empty() && length >= best_.size() / 2) return;
      dependencies_.forEachRequired(plugin, [&](std::size_t gate) {
        if (passed[gate] || found) return;
        passed[gate] = true;
        for (const std::size_t provider : dependencies_.gates()[gate].providers) {
          if (!isWaiting_[provider]) continue;
          if (provider == start) {
            tell(steps, plugin, gate, start);
            found = true;
            return;
          }
          if (steps[provider].before != kNone) continue;
          steps[provider] = {plugin, gate, length};
          queue.push_back(provider);
        }
      });
    }
  }

  void tell(const std::vector<Step>& steps, std::size_t last, std::size_t gate, std::size_t start) {
    best_ = {plugins_[start].name};
    for (std::size_t plugin = last; plugin != kNone; plugin = steps[plugin].before) {
      best_.push_back(dependencies_.gates()[gate].name);
      best_.push_back(plugins_[plugin].name);
      gate = steps[plugin].gate;
    }
    std::reverse(best_.begin(), best_.end());
  }

  const std::vector<KnownPlugin>& plugins_;
  const Dependencies& dependencies_;
  const std::vector<bool>& isWaiting_;
  std::vector<std::string> best_;
};

}  // namespace

std::vector<std::string> shortestCycle(const std::vector<KnownPlugin>& plugins,
                                       const Dependencies& dependencies,
                                       const std::vector<bool>& isWaiting) {
  return CycleFinder(plugins, dependencies, isWaiting).find();
}

}  // namespace bootforge::analyze
