#include "analyze/recorded/savings.h"

#include <algorithm>

#include "analyze/recorded/critical_chain.h"
#include "analyze/recorded/simulation.h"

namespace bootforge::analyze {
namespace {

/// The plugins that ran: those of the critical chain first, the others by their work.
std::vector<std::size_t> mostPromising(const Timeline& timeline) {
  std::vector<bool> isOnChain(timeline.plugins.size());
  for (const ChainLink& link : criticalChain(timeline)) isOnChain[link.plugin] = true;
  std::vector<std::size_t> order;
  for (std::size_t index = 0; index < timeline.plugins.size(); ++index) {
    if (timeline.plugins[index].ran) order.push_back(index);
  }
  std::stable_sort(order.begin(), order.end(), [&](std::size_t one, std::size_t other) {
    if (isOnChain[one] != isOnChain[other]) return bool{isOnChain[one]};
    return timeline.plugins[one].work > timeline.plugins[other].work;
  });
  return order;
}

}  // namespace

Savings findSavings(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                    std::size_t mostNodes) {
  Savings savings;
  savings.plugins.resize(timeline.plugins.size());
  if (timeline.workers == 0) return savings;
  const auto makespanWith = [&](const Changes& changes) -> std::int64_t {
    return wholeMicroseconds(simulate(timeline, known, changes, timeline.workers).makespan);
  };
  savings.makespan = makespanWith({});
  if (timeline.makespan > 0) {
    savings.modelError = static_cast<double>(savings.makespan - timeline.makespan) /
                         static_cast<double>(timeline.makespan);
  }
  // Each event of a simulation looks at all workers, which is cheap until there are many.
  constexpr std::size_t kCheapWorkers = 32;
  const std::size_t nodes =
      std::max(known.size(), timeline.plugins.size()) * (1 + timeline.workers / kCheapWorkers);
  std::size_t simulated = 0;
  for (const std::size_t index : mostPromising(timeline)) {
    const TimedPlugin& plugin = timeline.plugins[index];
    const std::size_t cost = nodes * (plugin.usesExecutor ? 3 : 2);
    if (plugin.work == 0) {  // there is nothing to be faster at
      savings.plugins[index] = Saving{0, 0, plugin.usesExecutor ? std::optional(0) : std::nullopt};
      continue;
    }
    if (simulated + cost > mostNodes) continue;
    simulated += cost;
    const auto saved = [&](const Changes& changes) {
      return savings.makespan - makespanWith(changes);
    };
    Saving& saving = savings.plugins[index].emplace();
    saving.half = saved({{{plugin.name, plugin.work / 2}}, {}});
    saving.none = saved({{{plugin.name, 0}}, {}});
    if (plugin.usesExecutor) saving.native = saved({{}, {}, {plugin.name}});
  }
  return savings;
}

}  // namespace bootforge::analyze
