// Any bytes as a shared object: read without a crash and in bounds, the same twice, and good only
// with a record that the orchestrator would take.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "analyze/image/native_object.h"

namespace {

using bootforge::NativeRecord;
using bootforge::analyze::NativeObject;

void require(bool condition) {
  if (!condition) std::abort();
}

bool isSame(const NativeRecord& one, const NativeRecord& other) {
  return one.apiVersion == other.apiVersion && one.provides == other.provides &&
         one.requires_ == other.requires_ && one.requiredFlags == other.requiredFlags &&
         one.disablingFlags == other.disablingFlags && one.pluginVersion == other.pluginVersion &&
         one.runOnce == other.runOnce && one.hasApplyHostProfile == other.hasApplyHostProfile;
}

}  // namespace

extern "C" {

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view file(reinterpret_cast<const char*>(data), size);
  const NativeObject object = bootforge::analyze::readNativeObject(file);
  const NativeObject again = bootforge::analyze::readNativeObject(file);
  require(isSame(object.record, again.record) && object.unloadable == again.unloadable);
  require(bootforge::analyze::readNeededLibraries(file).names == object.libraries.names);
  require(!bootforge::analyze::machineName(object.machine).empty());
  if (!object.isGood()) return 0;
  require(bootforge::native::isSupported(object.record.apiVersion));
  if (object.record.apiVersion >= 3) return 0;
  require(object.record.requiredFlags.empty() && object.record.disablingFlags.empty());
  require(object.record.pluginVersion.empty() && !object.record.runOnce);
  return 0;
}

}  // extern "C"
