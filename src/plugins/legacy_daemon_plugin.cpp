#include "plugins/legacy_daemon_plugin.h"

#include "graph/priority_barrier.h"
#include "plugins/exceptions.h"

namespace bootforge {
namespace {

// Behind plugins and milestones, whatever is waiting behind them.
constexpr std::uint32_t kScriptClass = 3;

}  // namespace

LegacyDaemonPlugin::LegacyDaemonPlugin(std::string name, const std::string& script,
                                       std::int32_t priority, BarrierRegistry& barriers)
    : DaemonPlugin(std::move(name), priority, kScriptClass) {
  const std::string command = script + " ++group=init/" + this->name();
  operations_[kStart] = command + " start";
  operations_[kStop] = command + " stop";
  ScopedLock lock(graphLock);
  PriorityBarrier& level = priorityBarrierFor(barriers, static_cast<std::uint32_t>(priority));
  attachToPriority(barriers, level, *this);
}

void LegacyDaemonPlugin::applyHostProfile() {
  throw NotImplementedException("LegacyDaemonPlugin::ApplyHostProfile");
}

}  // namespace bootforge
