// The debug injections of this host.
#pragma once

#include <list>

#include "reading/debug_configuration.h"

namespace bootforge {

/// Reads the host's debug configuration, in the order of its lines. No file means no injections; a
/// malformed line is logged and left out. Throws boost::escaped_list_error for a bad escape.
std::list<DebugEntry> loadDebugEntries();

}  // namespace bootforge
