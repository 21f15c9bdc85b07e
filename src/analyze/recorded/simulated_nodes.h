// A recorded boot as a graph that can be run again.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "analyze/recorded/known_plugin.h"
#include "graph/barrier_registry.h"
#include "plugins/plugin.h"

namespace bootforge::analyze {

/// A plugin that only takes its place in the graph.
class SimulatedPlugin : public Plugin {
 public:
  /// One that waits for nobody and is waited for by nobody.
  SimulatedPlugin(std::string name, bool isScript, std::size_t number);

  void run(Executor& /*executor*/) override {}
  void start() override {}
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override {}

  /// Links it as its description says.
  void link(const KnownPlugin& description, BarrierRegistry& barriers);

  std::size_t number() const { return number_; }

 private:
  const std::size_t number_;
};

/// The nodes of one simulation, linked in the order of the list, with the barriers between them.
/// Those without a description stand behind the others. A graph is run once.
class SimulatedGraph {
 public:
  /// The i-th node is that of the i-th description; `undescribed` more follow.
  SimulatedGraph(const std::vector<KnownPlugin>& known, const std::vector<std::string>& undescribed,
                 bool scripts);

  const std::vector<std::unique_ptr<SimulatedPlugin>>& plugins() const { return plugins_; }

 private:
  BarrierRegistry barriers_;  // lives longer than what is linked to it
  std::vector<std::unique_ptr<SimulatedPlugin>> plugins_;
};

}  // namespace bootforge::analyze
