// The milestones of a graph by name.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "graph/init_barrier.h"
#include "util/graph_lock.h"

namespace bootforge {

/// Owns the barriers of one graph, which live as long as it does, longer than the plugins that are
/// linked to them. A boot has one; who reads two images has two.
class BarrierRegistry {
 public:
  BarrierRegistry() = default;
  BarrierRegistry(const BarrierRegistry&) = delete;
  BarrierRegistry& operator=(const BarrierRegistry&) = delete;

  /// The barrier of that name. Where there is none: a new one with `create`, otherwise null.
  /// Looking up and making happen under one hold of the graph lock, so two readers of a new name
  /// get the same one.
  InitBarrier* lookupBarrier(std::string_view name, bool create);

  /// Registers the name for a barrier, or points it to another from now on.
  void registerBarrier(InitBarrier& barrier, const std::string& name);

  /// Takes over a barrier that was made elsewhere.
  InitBarrier& adopt(std::unique_ptr<InitBarrier> barrier);

  /// Every registered barrier, in the order of their names' bytes.
  std::vector<InitBarrier*> allBarriers() const;

  /// The priorities of all levels of init scripts, ascending.
  std::vector<std::uint32_t>& levels() REQUIRES(graphLock) { return levels_; }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const {
      return std::hash<std::string_view>()(name);
    }
  };

  // By hash, because descriptions look names up all the time and nobody but a dump asks for an
  // order.
  std::unordered_map<std::string, InitBarrier*, Hash, std::equal_to<>> byName_
      GUARDED_BY(graphLock);
  std::vector<std::unique_ptr<InitBarrier>> owned_ GUARDED_BY(graphLock);
  std::vector<std::uint32_t> levels_ GUARDED_BY(graphLock);
};

}  // namespace bootforge
