#include "analyze/recorded/slack.h"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

namespace bootforge::analyze {
namespace {

/// Works from the last start to the first. What starts together and takes no time may be linked in
/// both directions, by dependency one way and on a worker the other: there the bounds are lowered
/// until they agree.
class SlackFinder {
 public:
  explicit SlackFinder(Timeline& timeline)
      : timeline_(timeline),
        latestEnd_(timeline.plugins.size(), timeline.makespan),
        nextOnWorker_(timeline.plugins.size()),
        bounds_(timeline.dependencies.gates().size()) {}

  void find() {
    std::vector<std::size_t> order;
    for (std::size_t index = 0; index < plugins().size(); ++index) {
      if (plugins()[index].ran) order.push_back(index);
    }
    std::sort(order.begin(), order.end(), [this](std::size_t one, std::size_t other) {
      const TimedPlugin& a = plugins()[one];
      const TimedPlugin& b = plugins()[other];
      if (a.start != b.start) return a.start < b.start;
      return a.name != b.name ? a.name < b.name : one < other;
    });
    linkWorkers(order);
    // Of one start, those that take time come last: they bind those that take none, not the other
    // way round.
    std::stable_sort(order.begin(), order.end(), [this](std::size_t one, std::size_t other) {
      const TimedPlugin& a = plugins()[one];
      const TimedPlugin& b = plugins()[other];
      return a.start != b.start ? a.start < b.start : (a.run == 0) > (b.run == 0);
    });
    for (auto end = order.end(); end != order.begin();) {
      auto begin = std::prev(end);
      while (begin != order.begin() && belongTogether(*std::prev(begin), *begin)) --begin;
      boundTogether({begin, end});
      end = begin;
    }
    for (const std::size_t index : order) {
      plugins()[index].slack = latestEnd_[index] - plugins()[index].end;
    }
  }

 private:
  struct Bound {
    std::int64_t start;   // of a requirer
    std::int64_t latest;  // the latest start of those that start then or later
  };

  std::vector<TimedPlugin>& plugins() { return timeline_.plugins; }

  void linkWorkers(const std::vector<std::size_t>& order) {
    std::vector<std::optional<std::size_t>> last(timeline_.workers);
    for (const std::size_t index : order) {
      std::optional<std::size_t>& before = last[plugins()[index].worker];
      if (before) nextOnWorker_[*before] = index;
      before = index;
    }
  }

  bool belongTogether(std::size_t one, std::size_t other) {
    const TimedPlugin& a = plugins()[one];
    const TimedPlugin& b = plugins()[other];
    return a.start == b.start && (a.run == 0) == (b.run == 0);
  }

  void boundTogether(std::span<const std::size_t> group) {
    for (const std::size_t index : group) tighten(index);
    for (const std::size_t index : group) bindProviders(index);
    if (group.size() < 2 || plugins()[group.front()].run > 0) return;
    for (bool changed = true; changed;) {
      changed = false;
      for (const std::size_t index : group) {
        if (!tighten(index)) continue;
        bindProviders(index);
        changed = true;
      }
    }
  }

  bool tighten(std::size_t index) {
    std::int64_t latest = latestEnd_[index];
    if (const auto next = nextOnWorker_[index]) {
      latest = std::min(latest, latestEnd_[*next] - plugins()[*next].run);
    }
    const std::int64_t end = plugins()[index].end;
    for (const std::size_t gate : timeline_.dependencies.provided(index)) {
      // Starts descend, so those that are not before the end stand in front.
      const std::vector<Bound>& bounds = bounds_[gate];
      const auto behind = std::partition_point(
          bounds.begin(), bounds.end(), [end](const Bound& bound) { return bound.start >= end; });
      if (behind != bounds.begin()) latest = std::min(latest, std::prev(behind)->latest);
    }
    return std::exchange(latestEnd_[index], latest) != latest;
  }

  void bindProviders(std::size_t index) {
    const TimedPlugin& plugin = plugins()[index];
    const std::int64_t latestStart = latestEnd_[index] - plugin.run;
    timeline_.dependencies.forEachRequired(index, [&](std::size_t gate) {
      std::vector<Bound>& bounds = bounds_[gate];
      const std::int64_t latest =
          bounds.empty() ? latestStart : std::min(latestStart, bounds.back().latest);
      if (!bounds.empty() && bounds.back().start == plugin.start) {
        bounds.back().latest = latest;
      } else {
        bounds.push_back({plugin.start, latest});
      }
    });
  }

  Timeline& timeline_;
  std::vector<std::int64_t> latestEnd_;
  std::vector<std::optional<std::size_t>> nextOnWorker_;
  std::vector<std::vector<Bound>> bounds_;  // of each gate's requirers, later starts first
};

}  // namespace

void findSlack(Timeline& timeline) { SlackFinder(timeline).find(); }

}  // namespace bootforge::analyze
