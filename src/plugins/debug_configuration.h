// The list of debug injections.
#pragma once

#include <list>
#include <string>

namespace bootforge {

/// One line of the configuration: NAME:PROVIDES:REQUIRES:COMMAND.
struct DebugEntry {
  std::string name;
  std::list<std::string> provides;
  std::list<std::string> requires_;
  std::string command;
};

/// Reads /etc/nimbus/bootforge/debug.conf, in the order of its lines. No file means no injections;
/// a malformed line is logged and left out. Throws boost::escaped_list_error for a bad escape.
std::list<DebugEntry> loadDebugEntries();

}  // namespace bootforge
