#include "util/graph_lock.h"

namespace bootforge {

constinit RecursiveMutex graphLock;

}  // namespace bootforge
