#include "tests/unit/graph/laws.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace bootforge::test {
namespace {

constexpr std::size_t kNever = SIZE_MAX;

/// What the events say of one node, as places among the events.
struct Life {
  std::size_t begun = kNever;
  std::size_t ended = kNever;
  std::size_t workerWasFree = 0;    // the end before `begun` on the same worker, 0 for none
  std::size_t isComplete = kNever;  // the next beginning on the same worker: it is marked as done
};

struct Run {
  const Sketch& sketch;
  Direction direction;
  const std::vector<Event>& events;
  std::vector<std::vector<std::size_t>> before{sketch.classes.size()};
  std::vector<std::vector<std::size_t>> after{sketch.classes.size()};
  std::vector<Life> lives{sketch.classes.size()};
  std::vector<int> weights = std::vector<int>(sketch.classes.size(), -1);

  int weight(std::size_t node) {
    int& known = weights[node];
    if (known >= 0) return known;
    int longest = 0;
    for (const std::size_t next : after[node]) longest = std::max(longest, weight(next) + 1);
    return weights[node] = longest;
  }
};

std::string name(std::size_t node) { return "node " + std::to_string(node); }

std::string readEvents(Run& run, std::size_t workers) {
  std::map<std::thread::id, std::pair<std::size_t, std::size_t>> lastOf;  // node, place
  std::set<std::thread::id> busy;
  for (std::size_t place = 0; place < run.events.size(); ++place) {
    const Event& event = run.events[place];
    Life& life = run.lives[event.node];
    const auto last = lastOf.find(event.worker);
    if (event.isEnd) {
      if (last == lastOf.end() || last->second.first != event.node || life.ended != kNever) {
        return name(event.node) + " ends where it has not begun";
      }
      life.ended = place;
      busy.erase(event.worker);
    } else {
      if (life.begun != kNever) return name(event.node) + " begins twice";
      life.begun = place;
      if (last != lastOf.end()) {
        if (busy.contains(event.worker)) return "a worker begins " + name(event.node) + " too soon";
        life.workerWasFree = last->second.second;
        run.lives[last->second.first].isComplete = place;
      }
      busy.insert(event.worker);
    }
    lastOf[event.worker] = {event.node, place};
  }
  if (lastOf.size() > workers) return std::to_string(lastOf.size()) + " workers";
  for (std::size_t node = 0; node < run.lives.size(); ++node) {
    if (run.lives[node].ended == kNever) return name(node) + " does not end";
  }
  return {};
}

/// From which event on a node certainly stood in the queue: all that it waits for are marked as
/// done, and what waits for nothing was there before the first choice.
std::size_t certainlyQueued(const Run& run, std::size_t node) {
  std::size_t place = 0;
  for (const std::size_t other : run.before[node]) {
    place = std::max(place, run.lives[other].isComplete);
  }
  return place;
}

std::string checkOrder(const Run& run) {
  for (std::size_t node = 0; node < run.lives.size(); ++node) {
    for (const std::size_t other : run.before[node]) {
      if (run.lives[other].ended < run.lives[node].begun) continue;
      return name(node) + " begins before " + name(other) + " has ended";
    }
  }
  return {};
}

std::string checkChoices(Run& run) {
  for (std::size_t taken = 0; taken < run.lives.size(); ++taken) {
    for (std::size_t other = 0; other < run.lives.size(); ++other) {
      // It was there before the worker looked, and was taken by a worker that was busy until after.
      const bool wasThere = certainlyQueued(run, other) < run.lives[taken].workerWasFree &&
                            run.lives[other].workerWasFree > run.lives[taken].begun;
      if (!wasThere) continue;
      const std::pair key(run.sketch.classes[taken], -run.weight(taken));
      if (key <= std::pair(run.sketch.classes[other], -run.weight(other))) continue;
      return name(taken) + " is taken while " + name(other) + " is there";
    }
  }
  return {};
}

}  // namespace

std::string brokenLaw(const Sketch& sketch, Direction direction, std::size_t workers,
                      const std::vector<Event>& events) {
  Run run{sketch, direction, events};
  for (auto [before, after] : sketch.edges) {
    if (direction == Direction::kReverse) std::swap(before, after);
    run.before[after].push_back(before);
    run.after[before].push_back(after);
  }
  std::string broken = readEvents(run, workers);
  if (broken.empty()) broken = checkOrder(run);
  if (broken.empty()) broken = checkChoices(run);
  return broken;
}

}  // namespace bootforge::test
