// A plugin that a shared object defines.
#pragma once

#include <string>

#include "plugins/plugin.h"
#include "reading/native_record.h"

namespace bootforge {

/// What the shared object says of itself is read when the plugin is made (see bootforge/plugin.h);
/// an operation runs in a process of its own, the native executor.
class NativePlugin : public Plugin {
 public:
  /// Loads the object to read it. Throws as loadNativeRecord(). Main thread.
  NativePlugin(std::string name, const std::string& path, BarrierRegistry& barriers);
  /// Of an object that has been read.
  NativePlugin(std::string name, const std::string& path, const NativeRecord& record,
               BarrierRegistry& barriers);

  void start() override;
  /// True from API version 2 on, when the object has an entry for the operation.
  bool supportsApplyHostProfile() const override;
  void applyHostProfile() override;

 private:
  void runEntry(const char* method) const;

  const bool hasApplyHostProfile_;
  const std::string path_;
};

}  // namespace bootforge
