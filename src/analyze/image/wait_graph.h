// Who waits for whom in an image.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "analyze/image/image.h"

namespace bootforge::analyze {

/// The orchestrator's nodes and edges by number: first the plugins of the run, then those that are
/// left out, then milestones and levels by name. A picture of the moment at which it was made.
class WaitGraph {
 public:
  using Index = std::uint32_t;
  using Indices = std::vector<Index>;

  enum class Kind { Plugin, Milestone, Script, Level };

  explicit WaitGraph(const Image& image);

  std::size_t size() const { return nodes_.size(); }
  const Node& node(Index index) const { return *nodes_[index]; }
  const std::string& name(Index index) const { return nodes_[index]->name(); }
  Kind kind(Index index) const { return kinds_[index]; }
  bool isBarrier(Index index) const {
    return kinds_[index] == Kind::Milestone || kinds_[index] == Kind::Level;
  }
  /// Left out, or run already: it never runs and nobody waits for it.
  bool isDone(Index index) const { return done_[index]; }
  const Indices& prerequisites(Index index) const { return prerequisites_[index]; }
  const Indices& dependents(Index index) const { return dependents_[index]; }

  /// A plugin or script of that name, else a milestone or level; the first in linking order.
  std::optional<Index> find(std::string_view name) const;
  /// The names that look like one that is not known.
  std::vector<std::string_view> nearest(std::string_view name) const;

 private:
  std::vector<const Node*> nodes_;
  std::vector<Kind> kinds_;
  std::vector<char> done_;
  std::vector<Indices> prerequisites_;
  std::vector<Indices> dependents_;
};

/// "plugin" and so on.
std::string_view nameOf(WaitGraph::Kind kind);

/// Who is tied to a node by more than one edge, because a description names it twice, stands there
/// once: in the first of its places.
WaitGraph::Indices withoutRepeats(const WaitGraph::Indices& all);

/// The names of a chain.
std::vector<std::string> namesOf(const WaitGraph& graph, const WaitGraph::Indices& chain);

}  // namespace bootforge::analyze
