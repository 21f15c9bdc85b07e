#include "plugins/debug_configuration.h"

#include <sys/stat.h>

#include <boost/token_functions.hpp>
#include <optional>
#include <string>

#include "platform/log.h"
#include "util/regular_file.h"

namespace bootforge {
std::list<DebugEntry> loadDebugEntries() {
  std::list<DebugEntry> entries;
  // This is read again for every file of the plugin directory, and most hosts have none: to ask for
  // it costs half of what the attempt to open it does.
  struct stat status {};
  if (::stat(kDebugConfiguration, &status) != 0) return entries;
  const std::optional<std::string> text = readRegularFile(kDebugConfiguration);
  if (!text) return entries;
  for (DebugLine& line : readDebugConfiguration(*text)) {
    if (!line.badEscape.empty()) throw boost::escaped_list_error(line.badEscape);
    if (line.isMalformed()) {
      Log_Level(5, "ignoring malformed debug entry at line %d: %s\n", line.number,
                line.text.c_str());
      continue;
    }
    entries.push_back(*std::move(line.entry));
  }
  return entries;
}

}  // namespace bootforge
