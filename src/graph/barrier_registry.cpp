#include "graph/barrier_registry.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>

#include "graph/init_barrier.h"

namespace bootforge {
namespace {

struct Hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const {
    return std::hash<std::string_view>()(name);
  }
};

// By hash, because descriptions look names up all the time and nobody but a dump asks for an order.
using Registry = std::unordered_map<std::string, InitBarrier*, Hash, std::equal_to<>>;

// Never destroyed, like the barriers in it.
Registry& registry() REQUIRES(graphLock) {
  static auto* const barriers = new Registry;
  return *barriers;
}

}  // namespace

InitBarrier* lookupBarrier(std::string_view name, bool create) {
  ScopedLock lock(graphLock);
  Registry& barriers = registry();
  const auto place = barriers.find(name);
  if (place != barriers.end()) return place->second;
  if (!create) return nullptr;
  return barriers.try_emplace(std::string(name), new InitBarrier(std::string(name))).first->second;
}

void registerBarrier(InitBarrier& barrier, const std::string& name) {
  ScopedLock lock(graphLock);
  registry()[name] = &barrier;
}

std::vector<InitBarrier*> allBarriers() {
  ScopedLock lock(graphLock);
  std::vector<std::pair<std::string_view, InitBarrier*>> entries(registry().begin(),
                                                                 registry().end());
  std::sort(entries.begin(), entries.end());
  std::vector<InitBarrier*> barriers;
  barriers.reserve(entries.size());
  for (const auto& [name, barrier] : entries) barriers.push_back(barrier);
  return barriers;
}

}  // namespace bootforge
