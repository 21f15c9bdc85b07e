// Programs that the boot starts and waits for.
#pragma once

#include <string>
#include <vector>

namespace bootforge {

/// Runs `path` with `arguments` (the words after the program's name) in the environment of the run
/// options, its standard streams on /dev/null, no other descriptor open, every signal at its
/// default and none blocked, and waits for it. True when it exited with status 0. Main thread,
/// while no other thread exists.
bool runAndWait(const std::string& path, const std::vector<std::string>& arguments);

}  // namespace bootforge
