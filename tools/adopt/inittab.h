// What the lines of /etc/inittab become.
#pragma once

#include <string>
#include <vector>

#include "tools/adopt/lines.h"

namespace bootforge::adopt {

/// Where the lines find their programs.
struct Programs {
  std::string bootforge;
  std::string mkdir;
};

/// What sysvinit or busybox has to be told, and what is known of its boot from its lines.
struct InittabPlan {
  std::vector<Change> changes;
  char level = '2';  // whose rc line is replaced
};

/// In the place of the line of the boot's level that runs rc, and before those of levels 0 and 6.
/// Throws Exception, with the file's name, for a file in which there are no such lines.
InittabPlan planForSysvinit(const std::string& file, const std::string& text,
                            const Programs& programs);

/// In the place of a line that runs rc, or else after the last "sysinit" line, and before the first
/// "shutdown" line. Throws Exception as above.
InittabPlan planForBusybox(const std::string& file, const std::string& text,
                           const Programs& programs);

/// What busybox's init does where there is no file, as a file.
std::string defaultInittab();

}  // namespace bootforge::adopt
