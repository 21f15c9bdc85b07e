// A plugin that a shared object defines.
#pragma once

#include <string>

#include "plugins/plugin.h"

namespace bootforge {

/// The shared object is loaded only while the constructor reads its two data symbols (see
/// bootforge/plugin.h); an operation runs in a process of its own, the native executor. Loading
/// runs the object's static constructors in this process: one that does not return, or ends the
/// process, does so to the orchestrator.
class NativePlugin : public Plugin {
 public:
  /// Throws InvalidPluginException or Exception. Main thread.
  NativePlugin(std::string name, const std::string& path);

  void start() override;
  /// True from API version 2 on, when the object has an entry for the operation.
  bool supportsApplyHostProfile() const override;
  void applyHostProfile() override;

 private:
  void runEntry(const char* method) const;

  bool hasApplyHostProfile_ = false;
  const std::string path_;
};

}  // namespace bootforge
