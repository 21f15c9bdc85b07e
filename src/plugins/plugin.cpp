#include "plugins/plugin.h"

#include "graph/barrier_registry.h"
#include "graph/init_barrier.h"

namespace bootforge {

std::int64_t Plugin::activationDuration() const {
  return (std::int64_t{activationEnd_.tv_sec} - activationStart_.tv_sec) * 1'000'000 +
         (activationEnd_.tv_usec - activationStart_.tv_usec);
}

void Plugin::provide(BarrierRegistry& barriers, std::string_view milestone) {
  addDependent(*barriers.lookupBarrier(milestone, true));
}

void Plugin::require(BarrierRegistry& barriers, std::string_view milestone) {
  addPrerequisite(*barriers.lookupBarrier(milestone, true));
}

}  // namespace bootforge
