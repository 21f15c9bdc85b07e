// A system daemon: started by the forward pass, stopped by the reverse pass.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "plugins/plugin.h"

namespace bootforge {

/// Holds a command line for each operation, and runs it as a child with a limit of time. Operations
/// run on a worker, without the graph lock.
class DaemonPlugin : public Plugin {
 public:
  DaemonPlugin(std::string name, std::int32_t priority, std::uint32_t schedulingClass);

  /// Activation, with the service's name on the progress screen.
  void run(Executor& executor) override;
  /// Stops the daemon. A failure is a line in the kernel log; the pass goes on.
  void runReverse(Executor& executor) override;

  /// Throws MethodFailedException when the start command fails, and Exception when there is none.
  void start() override;
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override;
  /// Throws Exception when the stop command fails or there is none.
  virtual void stop();
  virtual void restart();
  virtual void sslReset();

  std::int32_t priority() const { return priority_; }

 protected:
  enum Operation : std::int32_t { kStart = 2, kStop = 4 };

  std::map<std::int32_t, std::string> operations_;  // command lines; filled by the constructors

 private:
  enum Status : std::int32_t { kNothingDone = 0, kStarted = 2, kStopped = 12, kStartFailed = 20 };

  void perform(Operation operation) const;

  const std::int32_t priority_;
  std::int32_t status_ = kNothingDone;  // the last outcome, for whoever debugs a core file
};

}  // namespace bootforge
