#include "analyze/recorded/critical_chain.h"

#include <algorithm>
#include <utility>

namespace bootforge::analyze {
namespace {

constexpr std::int64_t kWorthMentioning = 50;  // microseconds of waiting for a worker

class ChainFinder {
 public:
  explicit ChainFinder(const Timeline& timeline)
      : timeline_(timeline), onWorker_(timeline.workers), lastProvider_(findLastProviders()) {
    for (std::size_t index = 0; index < timeline.plugins.size(); ++index) {
      if (timeline.plugins[index].ran) onWorker_[timeline.plugins[index].worker].push_back(index);
    }
    for (auto& list : onWorker_) {
      std::sort(list.begin(), list.end(), [this](std::size_t one, std::size_t other) {
        const TimedPlugin& a = plugin(one);
        const TimedPlugin& b = plugin(other);
        if (a.start != b.start) return a.start < b.start;
        return a.name != b.name ? a.name < b.name : one < other;
      });
    }
  }

  std::vector<ChainLink> find(std::optional<std::size_t> to) {
    std::vector<ChainLink> chain;
    if (!to) to = last();
    if (!to) return chain;
    seen_.assign(timeline_.plugins.size(), false);
    for (std::size_t next = *to;; next = chain.back().waitedFor) {
      seen_[next] = true;
      chain.push_back(linkOf(next));
      if (chain.back().after == ChainLink::After::Start) break;
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
  }

 private:
  const TimedPlugin& plugin(std::size_t index) const { return timeline_.plugins[index]; }

  /// Whether one plugin is a better answer than another to "which one ended last".
  bool endedLater(std::size_t one, std::optional<std::size_t> other) const {
    return !other || bootforge::analyze::endedLater(plugin(one), plugin(*other));
  }

  std::optional<std::size_t> last() const {
    std::optional<std::size_t> chosen;
    for (std::size_t index = 0; index < timeline_.plugins.size(); ++index) {
      if (plugin(index).ran && endedLater(index, chosen)) chosen = index;
    }
    return chosen;
  }

  std::vector<std::optional<std::size_t>> findLastProviders() const {
    std::vector<std::optional<std::size_t>> result;
    for (const Gate& gate : timeline_.dependencies.gates()) {
      result.push_back(lastProvider(timeline_, gate));
    }
    return result;
  }

  ChainLink linkOf(std::size_t index) const {
    ChainLink link;
    link.plugin = index;
    link.gap = plugin(index).start;
    if (plugin(index).waitWorker > kWorthMentioning && waitedForWorker(link)) return link;
    waitedForMilestone(link);
    return link;
  }

  bool waitedForWorker(ChainLink& link) const {
    const std::vector<std::size_t>& list = onWorker_[plugin(link.plugin).worker];
    std::optional<std::size_t> chosen;
    for (auto entry = std::find(list.begin(), list.end(), link.plugin); entry != list.begin();) {
      --entry;
      // Ends ascend along a worker, so the first that is earlier ends the search.
      if (chosen && plugin(*entry).end < plugin(*chosen).end) break;
      if (!seen_[*entry] && endedLater(*entry, chosen)) chosen = *entry;
    }
    if (!chosen) return false;
    link.after = ChainLink::After::Worker;
    link.waitedFor = *chosen;
    link.gap = plugin(link.plugin).start - plugin(*chosen).end;
    return true;
  }

  void waitedForMilestone(ChainLink& link) const {
    std::optional<std::size_t> chosen;
    timeline_.dependencies.forEachRequired(link.plugin, [&](std::size_t number) {
      const Gate& gate = timeline_.dependencies.gates()[number];
      std::optional<std::size_t> provider = lastProvider_[number];
      if (provider && seen_[*provider]) provider = lastProvider(timeline_, gate, seen_);
      if (!provider) return;
      const bool isSame = provider == chosen && gate.name < link.milestone;
      if (!isSame && (provider == chosen || !endedLater(*provider, chosen))) return;
      chosen = provider;
      link.milestone = gate.name;
    });
    if (!chosen) return;
    link.after = ChainLink::After::Milestone;
    link.waitedFor = *chosen;
    link.gap = plugin(link.plugin).start - plugin(*chosen).end;
  }

  const Timeline& timeline_;
  // What stands in the chain already is not taken again: plugins of one moment that take no time
  // may seem to follow each other both ways.
  std::vector<bool> seen_;
  std::vector<std::vector<std::size_t>> onWorker_;  // in the order in which they ran
  std::vector<std::optional<std::size_t>> lastProvider_;
};

}  // namespace

std::vector<ChainLink> criticalChain(const Timeline& timeline, std::optional<std::size_t> to) {
  return ChainFinder(timeline).find(to);
}

}  // namespace bootforge::analyze
