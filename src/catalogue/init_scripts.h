// The host's init scripts.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace bootforge {

/// Script paths by start priority, ascending; equal priorities in the order of the list.
using InitScripts = std::multimap<std::int32_t, std::string>;

/// Whether an init run starts that script itself: it is then no daemon of the graph.
bool isStartedByBoot(const std::string& name);

/// Asks the service-configuration tool, "/bin/chkconfig -p", whose lines are PATH PRIORITY. Without
/// the tool there are no scripts. Throws Exception when reading its list fails. Main thread, while
/// no other thread exists.
InitScripts enumerateInitScripts();

}  // namespace bootforge
