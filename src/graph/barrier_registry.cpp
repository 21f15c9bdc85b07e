#include "graph/barrier_registry.h"

#include <algorithm>
#include <utility>

namespace bootforge {

InitBarrier* BarrierRegistry::lookupBarrier(std::string_view name, bool create) {
  ScopedLock lock(graphLock);
  const auto place = byName_.find(name);
  if (place != byName_.end()) return place->second;
  if (!create) return nullptr;
  InitBarrier& barrier = adopt(std::make_unique<InitBarrier>(std::string(name)));
  byName_.try_emplace(std::string(name), &barrier);
  return &barrier;
}

void BarrierRegistry::registerBarrier(InitBarrier& barrier, const std::string& name) {
  ScopedLock lock(graphLock);
  byName_[name] = &barrier;
}

InitBarrier& BarrierRegistry::adopt(std::unique_ptr<InitBarrier> barrier) {
  ScopedLock lock(graphLock);
  return *owned_.emplace_back(std::move(barrier));
}

std::vector<InitBarrier*> BarrierRegistry::allBarriers() const {
  ScopedLock lock(graphLock);
  std::vector<std::pair<std::string_view, InitBarrier*>> entries(byName_.begin(), byName_.end());
  std::sort(entries.begin(), entries.end());
  std::vector<InitBarrier*> barriers;
  barriers.reserve(entries.size());
  for (const auto& [name, barrier] : entries) barriers.push_back(barrier);
  return barriers;
}

}  // namespace bootforge
