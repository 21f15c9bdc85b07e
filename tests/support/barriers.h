// The milestones of the plugins that a test makes.
#pragma once

#include "graph/barrier_registry.h"

namespace bootforge::test {

/// One for the process, or for the child that a test forks for itself; never destroyed.
inline BarrierRegistry& barriers() {
  static auto* const registry = new BarrierRegistry;
  return *registry;
}

}  // namespace bootforge::test
