// What has to be made and changed on a host.
#pragma once

#include <string>
#include <vector>

#include "analyze/image/root_folder.h"
#include "tools/adopt/record.h"
#include "tools/adopt/tree.h"

namespace bootforge::adopt {

/// The steps, in their order: the one that makes the next boot another one is the last.
struct Plan {
  Record record;
  std::vector<std::string> notes;  // what the operator should know
};

/// Looks for the init program and at what it needs. `root` finds files, `tree` tells what they will
/// be like when what is to be done before is done. Throws Exception, with a reason to be shown, for
/// a host that cannot be adopted, and Failure.
Plan planFor(const analyze::RootFolder& root, const Tree& tree);

/// The launchers that the host's scripts lack, and their folder.
std::vector<Step> missingLaunchers(const analyze::RootFolder& root, const Tree& tree);

}  // namespace bootforge::adopt
