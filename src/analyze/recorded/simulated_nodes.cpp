#include "analyze/recorded/simulated_nodes.h"

#include <utility>

#include "graph/priority_barrier.h"

namespace bootforge::analyze {
namespace {

constexpr std::uint32_t kPluginClass = 1;
constexpr std::uint32_t kScriptClass = 3;

}  // namespace

SimulatedPlugin::SimulatedPlugin(std::string name, bool isScript, std::size_t number)
    : Plugin(std::move(name), isScript ? kScriptClass : kPluginClass), number_(number) {}

void SimulatedPlugin::link(const KnownPlugin& description, BarrierRegistry& barriers) {
  if (description.kind == KnownPlugin::Kind::Script) {
    attachToPriority(barriers, priorityBarrierFor(barriers, description.level), *this);
  }
  for (const std::string& milestone : description.required) require(barriers, milestone);
  for (const std::string& milestone : description.provided) provide(barriers, milestone);
}

SimulatedGraph::SimulatedGraph(const std::vector<KnownPlugin>& known,
                               const std::vector<std::string>& undescribed, bool scripts) {
  for (const KnownPlugin& description : known) {
    plugins_.push_back(std::make_unique<SimulatedPlugin>(
        description.name, description.kind == KnownPlugin::Kind::Script, plugins_.size()));
    plugins_.back()->link(description, barriers_);
    if (description.leftOut) plugins_.back()->markForwardDone();
  }
  for (const std::string& name : undescribed) {
    plugins_.push_back(std::make_unique<SimulatedPlugin>(name, scripts, plugins_.size()));
  }
}

}  // namespace bootforge::analyze
