// A named milestone.
#pragma once

#include "graph/node.h"

namespace bootforge {

/// Waits for the plugins that provide it and is waited for by those that require it. Lives until
/// the process ends.
class InitBarrier : public Node {
 public:
  explicit InitBarrier(std::string name) : Node(std::move(name), 1) {}

  /// Reports a milestone that nobody provides: in the log, and as a system alert unless one method
  /// of chosen plugins is being invoked. The plugins that require it run all the same.
  void run(Executor& executor) override;
  std::string dotAttributes() const override { return " shape=box"; }
};

}  // namespace bootforge
