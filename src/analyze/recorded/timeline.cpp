#include "analyze/recorded/timeline.h"

#include <algorithm>
#include <functional>
#include <queue>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "analyze/recorded/executor_share.h"
#include "analyze/recorded/slack.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

constexpr std::size_t kToldContradictions = 5;

class TimelineMaker {
 public:
  TimelineMaker(const ProfileSection& section, const std::vector<KnownPlugin>& known)
      : section_(section), known_(known) {
    timeline_.kind = section.kind;
    timeline_.kernelMicroseconds = section.kernelMicroseconds;
  }

  Timeline make(const BootMessages* messages) {
    findStart();
    addPlugins();
    pairDescriptions();
    if (messages != nullptr) takeResults(*messages);
    findWaits();
    assignWorkers();
    shareExecutor(timeline_.plugins);
    findSlack(timeline_);
    return std::move(timeline_);
  }

 private:
  static bool hasRun(const ProfiledPlugin& line) { return line.start != 0 && line.end != 0; }

  void findStart() {
    bool any = false;
    for (const ProfiledPlugin& line : section_.plugins) {
      if (!hasRun(line)) continue;
      timeline_.start = any ? std::min(timeline_.start, line.start) : line.start;
      any = true;
    }
  }

  void addPlugins() {
    for (const ProfiledPlugin& line : section_.plugins) {
      TimedPlugin& plugin = timeline_.plugins.emplace_back();
      plugin.name = line.name;
      plugin.start = line.start - timeline_.start;
      if (line.start == 0) {
        plugin.result = TimedPlugin::Result::Never;
        plugin.start = 0;
        if (line.end != 0) {
          timeline_.notes.push_back(printable(line.name) +
                                    " has an end and no start; it counts as never run");
        }
      } else if (line.end == 0) {
        plugin.result = TimedPlugin::Result::Skipped;
      } else {
        plugin.ran = true;
        plugin.end = line.end - timeline_.start;
        if (endedBeforeItsStart(line)) {
          timeline_.notes.push_back(noteOnItsEnd(line));
          plugin.end = plugin.start;
        }
        plugin.run = plugin.end - plugin.start;
        timeline_.makespan = std::max(timeline_.makespan, plugin.end);
      }
    }
  }

  void pairDescriptions() {
    std::unordered_map<std::string_view, std::queue<std::size_t>> descriptions;
    for (std::size_t index = 0; index < known_.size(); ++index) {
      descriptions[known_[index].name].push(index);
    }
    std::vector<const KnownPlugin*> described;
    for (TimedPlugin& plugin : timeline_.plugins) {
      const auto place = descriptions.find(plugin.name);
      const KnownPlugin* description = nullptr;
      if (place != descriptions.end() && !place->second.empty()) {
        plugin.known = place->second.front();
        place->second.pop();
        description = &known_[*plugin.known];
        plugin.usesExecutor =
            description->kind == KnownPlugin::Kind::Json && description->hasCommands;
      }
      described.push_back(description);
    }
    timeline_.dependencies = Dependencies(described);
  }

  void takeResults(const BootMessages& messages) {
    for (TimedPlugin& plugin : timeline_.plugins) {
      const auto told = messages.plugins.find(plugin.name);
      if (!plugin.ran || told == messages.plugins.end()) continue;
      if (told->second.outcome == PluginMessages::Outcome::Activated) {
        plugin.result = TimedPlugin::Result::Activated;
      } else if (told->second.outcome == PluginMessages::Outcome::Failed) {
        plugin.result = TimedPlugin::Result::Failed;
        plugin.reason = told->second.reason;
      }
    }
  }

  void findWaits() {
    std::vector<std::optional<std::size_t>> last;
    for (const Gate& gate : timeline_.dependencies.gates()) {
      last.push_back(lastProvider(timeline_, gate));
    }
    std::size_t contradictions = 0;
    for (std::size_t index = 0; index < timeline_.plugins.size(); ++index) {
      TimedPlugin& plugin = timeline_.plugins[index];
      if (!plugin.ran) continue;
      const TimedPlugin* latest = nullptr;
      timeline_.dependencies.forEachRequired(index, [&](std::size_t number) {
        std::optional<std::size_t> provider = last[number];
        if (provider == index) {  // nobody waits for itself
          std::vector<bool> self(timeline_.plugins.size());
          self[index] = true;
          provider = lastProvider(timeline_, timeline_.dependencies.gates()[number], self);
        }
        if (!provider) return;
        const TimedPlugin& candidate = timeline_.plugins[*provider];
        if (latest == nullptr || endedLater(candidate, *latest)) latest = &candidate;
      });
      const std::int64_t ready = latest == nullptr ? 0 : latest->end;
      plugin.waitMilestones = ready;
      plugin.waitWorker = std::max<std::int64_t>(0, plugin.start - ready);
      if (plugin.start >= ready || ++contradictions > kToldContradictions) continue;
      timeline_.contradictions.push_back(
          printable(plugin.name) + " started " + std::to_string(ready - plugin.start) +
          " us before the end of " + printable(latest->name) + ", for which it waits");
    }
    if (contradictions > kToldContradictions) {
      timeline_.contradictions.push_back(
          "and " + std::to_string(contradictions - kToldContradictions) + " more such starts");
    }
  }

  /// Each to the lowest worker that is free, in the order of the starts.
  void assignWorkers() {
    std::vector<TimedPlugin*> order;
    for (TimedPlugin& plugin : timeline_.plugins) {
      if (plugin.ran) order.push_back(&plugin);
    }
    std::stable_sort(order.begin(), order.end(), [](const auto* one, const auto* other) {
      return one->start != other->start ? one->start < other->start : one->name < other->name;
    });
    using Busy = std::pair<std::int64_t, std::size_t>;  // end and worker
    std::priority_queue<Busy, std::vector<Busy>, std::greater<>> busy;
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> free;
    for (TimedPlugin* const plugin : order) {
      for (; !busy.empty() && busy.top().first <= plugin->start; busy.pop()) {
        free.push(busy.top().second);
      }
      if (free.empty()) free.push(timeline_.workers++);
      plugin->worker = free.top();
      free.pop();
      busy.emplace(plugin->end, plugin->worker);
    }
  }

  const ProfileSection& section_;
  const std::vector<KnownPlugin>& known_;
  Timeline timeline_;
};

}  // namespace

Timeline makeTimeline(const ProfileSection& section, const std::vector<KnownPlugin>& known,
                      const BootMessages* messages) {
  return TimelineMaker(section, known).make(messages);
}

bool endedLater(const TimedPlugin& one, const TimedPlugin& other) {
  return one.end != other.end ? one.end > other.end : one.name < other.name;
}

std::optional<std::size_t> lastProvider(const Timeline& timeline, const Gate& gate,
                                        const std::vector<bool>& except) {
  std::optional<std::size_t> chosen;
  for (const std::size_t index : gate.providers) {
    const TimedPlugin& provider = timeline.plugins[index];
    if (!provider.ran || (!except.empty() && except[index])) continue;
    if (!chosen || endedLater(provider, timeline.plugins[*chosen])) chosen = index;
  }
  return chosen;
}

const char* textOf(TimedPlugin::Result result) {
  switch (result) {
    case TimedPlugin::Result::Activated:
      return "activated";
    case TimedPlugin::Result::Failed:
      return "failed";
    case TimedPlugin::Result::Skipped:
      return "skipped";
    case TimedPlugin::Result::Never:
      return "never";
    case TimedPlugin::Result::Unknown:
      break;
  }
  return "unknown";
}

}  // namespace bootforge::analyze
