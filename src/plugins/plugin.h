// A unit of boot work.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "graph/node.h"

namespace bootforge {

class BarrierRegistry;

/// The base of all kinds of plugins: a node with a description and a small, fixed set of
/// operations. Constructed and linked by the main thread; its operations run on a worker, without
/// the graph lock.
class Plugin : public Node {
 public:
  using FlagSet = std::set<std::string>;

  /// Activation: runs the operation that the run asks for, times it, and turns every failure into
  /// log lines. Never throws, so a failed plugin still releases its dependents.
  /// (graph/activation.cpp)
  void run(Executor& executor) override;
  std::string dotAttributes() const override { return {}; }
  ~Plugin() override = default;

  /// Does the boot work. Throws MethodFailedException when it fails.
  virtual void start() = 0;
  virtual bool supportsApplyHostProfile() const = 0;
  /// Starts by means of the host's profile. Throws NotImplementedException where that is unknown.
  virtual void applyHostProfile() = 0;
  /// The interface version of the description, or -1 for kinds without one.
  virtual std::int32_t apiVersion() const { return apiVersion_; }

  /// All of these flags must be given for the plugin to run.
  const FlagSet& requiredFlags() const { return requiredFlags_; }
  /// Any of these flags keeps the plugin from running.
  const FlagSet& disablingFlags() const { return disablingFlags_; }
  bool runOnce() const { return runOnce_; }
  const std::string& pluginVersion() const { return pluginVersion_; }
  /// Wall-clock times of the activation, zero when it never took place. Written by the worker; to
  /// be read when the node is done.
  const timeval& activationStart() const { return activationStart_; }
  const timeval& activationEnd() const { return activationEnd_; }
  /// Microseconds between the two.
  std::int64_t activationDuration() const;

 protected:
  explicit Plugin(std::string name) : Plugin(std::move(name), 1) {}
  Plugin(std::string name, std::uint32_t schedulingClass)
      : Node(std::move(name), schedulingClass) {}

  /// Makes the plugin one of those that reach the milestone, or one that waits for it.
  void provide(BarrierRegistry& barriers, std::string_view milestone);
  void require(BarrierRegistry& barriers, std::string_view milestone);

  std::int32_t apiVersion_ = -1;
  bool runOnce_ = false;
  std::string pluginVersion_;
  FlagSet requiredFlags_;
  FlagSet disablingFlags_;

 private:
  void activate();
  bool invokeMethod(const std::string& method);

  timeval activationStart_{};
  timeval activationEnd_{};
};

}  // namespace bootforge
