// The graph lock: one for the process.
//
// It guards every node's lists and state, the barrier registry, the priority levels, the executors'
// queues, the creation of the run options and the restart of the CLI executor. Plugin work runs
// without it.
#pragma once

#include "util/recursive_mutex.h"

namespace bootforge {

extern RecursiveMutex graphLock;

}  // namespace bootforge
