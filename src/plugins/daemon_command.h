// One command of a daemon.
#pragma once

#include <string>

namespace bootforge {

/// Runs a command line, split at white space, as a child in "/" with /dev/null for input and output
/// and /dev/log for error, and waits for it: ten seconds at most, after which it counts as
/// successful, or as long as the run options say when they ask for waiting, after which it has
/// failed. It is left running in either case. Throws Exception with the reason. Any thread.
void runDaemonCommand(const std::string& commandLine);

}  // namespace bootforge
