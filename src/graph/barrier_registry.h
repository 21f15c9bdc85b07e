// The process's milestones by name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "util/graph_lock.h"

namespace bootforge {

class InitBarrier;

/// The barrier of that name. Where there is none: a new one with `create`, otherwise null. Looking
/// up and making happen under one hold of the graph lock, so two readers of a new name get the same
/// one.
InitBarrier* lookupBarrier(std::string_view name, bool create);

/// Registers the name for a barrier, or points it to another. Barriers are never destroyed.
void registerBarrier(InitBarrier& barrier, const std::string& name);

/// Every registered barrier, in the order of their names' bytes.
std::vector<InitBarrier*> allBarriers();

}  // namespace bootforge
