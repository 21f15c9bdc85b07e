// The ready nodes of an executor, best choice first.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "graph/node.h"

namespace bootforge {

/// Gives the choice that a walk over all ready nodes would give: the lowest scheduling class, among
/// those the greatest weight, among those the first to come; or, when randomizing, number rand(3)
/// modulo their count. A turn costs O(log n) at most, and O(1) while few classes and weights are
/// about. A node's class and weight must not change while it stands here.
class ReadyQueue {
 public:
  explicit ReadyQueue(bool randomize) : randomize_(randomize) {}

  bool empty() const REQUIRES(graphLock) { return size() == 0; }
  std::size_t size() const REQUIRES(graphLock) { return arrivals_.size() + sorted_; }
  void push(Node& node) REQUIRES(graphLock) { arrivals_.push_back(&node); }
  /// A node that was taken out, null for none, and how many others of its class and weight were
  /// there: equally good, so that only their order of arrival (or chance) decided.
  struct Choice {
    Node* node = nullptr;
    std::size_t equals = 0;
  };

  /// Takes the best node out. Calls rand(3) once when randomizing and there is one.
  Choice pop() REQUIRES(graphLock);

 private:
  struct Key {
    std::uint32_t schedulingClass;
    std::int32_t weight;
    // The best key is the least.
    std::strong_ordering operator<=>(const Key& other) const {
      const auto order = schedulingClass <=> other.schedulingClass;
      if (std::is_neq(order)) return order;
      return other.weight <=> weight;
    }
    bool operator==(const Key&) const = default;
  };

  // Nodes of one key in order of arrival. Entries before `front` are gone.
  struct Peers {
    std::vector<Node*> nodes;
    std::size_t front = 0;
    // When randomizing: how many of each aligned run of entries are still there, as a Fenwick tree.
    std::vector<std::uint32_t> counts;
    std::size_t present = 0;

    void append(Node& node, bool counted);
    Node* takeFirst();
    Node* take(std::size_t index);
    void recount();
  };
  using Groups = std::map<Key, Peers>;

  void sort(Node& node) REQUIRES(graphLock);
  void retire(Groups::iterator group) REQUIRES(graphLock);

  const bool randomize_;
  // Those that have come since the last choice, in order. They are sorted for the next one, unless
  // there is one only: it is the best choice whatever its key, so that a chain never pays for keys.
  std::vector<Node*> arrivals_ GUARDED_BY(graphLock);
  std::size_t sorted_ GUARDED_BY(graphLock) = 0;
  Groups groups_ GUARDED_BY(graphLock);
  Groups::iterator latest_ GUARDED_BY(graphLock) = groups_.end();
  // Emptied groups with their memory, for the next key.
  std::vector<Groups::node_type> spare_ GUARDED_BY(graphLock);
};

}  // namespace bootforge
