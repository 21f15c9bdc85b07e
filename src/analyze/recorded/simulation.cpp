#include "analyze/recorded/simulation.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "analyze/recorded/simulated_nodes.h"
#include "graph/executor.h"
#include "util/graph_lock.h"

namespace bootforge::analyze {
namespace {

constexpr long double kOneMoment = 0.001L;  // ends within a nanosecond belong together

/// How long a node works, and whether for that it shares the executor.
struct Load {
  long double work = 0;
  bool usesExecutor = false;
};

class Simulator {
 public:
  Simulator(const Timeline& timeline, const std::vector<KnownPlugin>& known, const Changes& changes,
            std::size_t workers)
      : graph_(known, undescribedIn(timeline), timeline.kind == ProfileSection::Kind::Daemon),
        executor_(0, false) {
    result_.workers = workers;
    findLoads(timeline, known);
    for (const auto& plugin : graph_.plugins()) {
      for (const auto& [name, work] : changes.work) {
        if (name == plugin->name()) loads_[plugin->number()].work = static_cast<long double>(work);
      }
      for (const std::string& name : changes.without) {
        if (name == plugin->name()) plugin->markForwardDone();
      }
      for (const std::string& name : changes.native) {
        if (name == plugin->name()) loads_[plugin->number()].usesExecutor = false;
      }
    }
    // More workers than plugins never find work; one is needed for milestones.
    workers_.resize(std::min(workers, std::max<std::size_t>(1, loads_.size())));
  }

  Simulation run() {
    ScopedLock lock(graphLock);
    for (const auto& plugin : graph_.plugins()) plugin->scheduleForward(executor_);
    for (;;) {
      giveWork();
      const std::optional<long double> end = nextEnd();
      if (!end) break;
      advanceTo(*end);
      completeEnded();
    }
    result_.makespan = now_;
    return std::move(result_);
  }

 private:
  struct Worker {
    SimulatedPlugin* plugin = nullptr;  // what it works on
    bool usesExecutor = false;
    // When it ends: by the clock, or by that of the executor, which advances at 1/k.
    long double end = 0;
    std::size_t run = 0;  // its place in the result
  };

  static std::vector<std::string> undescribedIn(const Timeline& timeline) {
    std::vector<std::string> names;
    for (const TimedPlugin& plugin : timeline.plugins) {
      if (!plugin.known && plugin.ran) names.push_back(plugin.name);
    }
    return names;
  }

  void findLoads(const Timeline& timeline, const std::vector<KnownPlugin>& known) {
    for (const KnownPlugin& plugin : known) {
      loads_.push_back({0, plugin.kind == KnownPlugin::Kind::Json && plugin.hasCommands});
    }
    for (const TimedPlugin& plugin : timeline.plugins) {
      if (!plugin.ran) continue;
      if (plugin.known) {
        loads_[*plugin.known].work = plugin.exactWork;
      } else {
        loads_.push_back({plugin.exactWork, false});
      }
    }
  }

  /// Each free worker, lowest first, takes the best ready node, and another one as long as they
  /// take no time.
  void giveWork() REQUIRES(graphLock) {
    for (std::size_t number = 0; number < workers_.size(); ++number) {
      Worker& worker = workers_[number];
      while (worker.plugin == nullptr) {
        Node* const node = executor_.take().node;
        if (node == nullptr) return;
        begin(number, *node);
      }
    }
  }

  void begin(std::size_t number, Node& node) REQUIRES(graphLock) {
    auto* const plugin = dynamic_cast<SimulatedPlugin*>(&node);
    if (plugin == nullptr) {  // a milestone or a level
      executor_.complete(node);
      return;
    }
    result_.runs.push_back({plugin->name(), now_, now_, number});
    const Load& load = loads_[plugin->number()];
    if (load.work <= 0) {
      executor_.complete(node);
      return;
    }
    Worker& worker = workers_[number];
    worker.plugin = plugin;
    worker.usesExecutor = load.usesExecutor;
    worker.end = (load.usesExecutor ? executorClock_ : now_) + load.work;
    worker.run = result_.runs.size() - 1;
    sharers_ += load.usesExecutor ? 1 : 0;
  }

  /// When a worker ends, if nothing else happens before.
  long double endOf(const Worker& worker) const {
    if (!worker.usesExecutor) return worker.end;
    return now_ + (worker.end - executorClock_) * static_cast<long double>(sharers_);
  }

  std::optional<long double> nextEnd() const {
    std::optional<long double> next;
    for (const Worker& worker : workers_) {
      if (worker.plugin == nullptr) continue;
      next = std::min(next.value_or(std::numeric_limits<long double>::max()), endOf(worker));
    }
    return next;
  }

  /// Ends are told before the clocks move.
  void advanceTo(long double moment) {
    ended_.clear();
    for (std::size_t number = 0; number < workers_.size(); ++number) {
      const Worker& worker = workers_[number];
      if (worker.plugin != nullptr && endOf(worker) <= moment + kOneMoment)
        ended_.push_back(number);
    }
    const long double passed = moment - now_;
    for (const Worker& worker : workers_) result_.busy += worker.plugin != nullptr ? passed : 0;
    if (sharers_ > 0) {
      result_.executorBusy += passed;
      executorClock_ += passed / static_cast<long double>(sharers_);
    }
    now_ = moment;
  }

  void completeEnded() REQUIRES(graphLock) {
    for (const std::size_t number : ended_) {
      Worker& worker = workers_[number];
      result_.runs[worker.run].end = now_;
      sharers_ -= worker.usesExecutor ? 1 : 0;
      executor_.complete(*worker.plugin);
      worker.plugin = nullptr;
    }
  }

  SimulatedGraph graph_;
  Executor executor_;
  std::vector<Load> loads_;
  std::vector<Worker> workers_;
  std::vector<std::size_t> ended_;
  std::size_t sharers_ = 0;
  long double now_ = 0;
  long double executorClock_ = 0;
  Simulation result_;
};

}  // namespace

Simulation simulate(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                    const Changes& changes, std::size_t workers) {
  return Simulator(timeline, known, changes, workers).run();
}

std::int64_t wholeMicroseconds(long double microseconds) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  return microseconds < static_cast<long double>(kMost) ? std::llround(microseconds) : kMost;
}

}  // namespace bootforge::analyze
