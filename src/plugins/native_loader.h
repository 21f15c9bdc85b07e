// Reading the records of a shared object by loading it.
#pragma once

#include <string>

#include "reading/native_record.h"

namespace bootforge {

/// Loads the object, copies its records and unloads it again. Loading runs the object's static
/// constructors in this process: one that does not return, or ends the process, does so to the
/// orchestrator. Records that are too short or lead nowhere are faults, not crashes. Throws
/// InvalidPluginException, naming the path, or Exception for a symbol that is missing. Main thread.
NativeRecord loadNativeRecord(const std::string& path);

}  // namespace bootforge
