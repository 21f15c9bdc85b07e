#include "plugins/plugin.h"

#include "graph/barrier_registry.h"
#include "graph/init_barrier.h"

namespace bootforge {

std::int64_t Plugin::activationDuration() const {
  return (std::int64_t{activationEnd_.tv_sec} - activationStart_.tv_sec) * 1'000'000 +
         (activationEnd_.tv_usec - activationStart_.tv_usec);
}

void Plugin::provide(std::string_view milestone) { addDependent(*lookupBarrier(milestone, true)); }

void Plugin::require(std::string_view milestone) {
  addPrerequisite(*lookupBarrier(milestone, true));
}

}  // namespace bootforge
