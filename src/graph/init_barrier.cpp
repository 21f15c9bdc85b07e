#include "graph/init_barrier.h"

#include "main/run_options.h"
#include "platform/log.h"
#include "util/system_alert.h"

namespace bootforge {

void InitBarrier::run(Executor& /*executor*/) {
  ScopedLock lock(graphLock);
  if (!prerequisites().empty()) return;
  std::string message = "Bootforge dependency error: Initialization barrier \"" + name() +
                        "\" is not provided by any plugin but the following plugins "
                        "require it: ";
  const char* separator = "";
  for (const Node* node : dependents()) {
    message += separator;
    message += '"' + node->name() + '"';
    separator = ", ";
  }
  if (!RunOptions::instance().invoke) raiseSystemAlert(message);
  Log_Level(3, "%s\n", message.c_str());
}

}  // namespace bootforge
