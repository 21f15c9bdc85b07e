#include "main/run_options.h"

#include <ctime>

#include "util/graph_lock.h"

namespace bootforge {

RunOptions::RunOptions() : randomSeed(std::time(nullptr)) {}

RunOptions& RunOptions::instance() {
  ScopedLock lock(graphLock);
  static auto* const options = new RunOptions;
  return *options;
}

}  // namespace bootforge
