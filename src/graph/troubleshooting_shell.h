// The shell of the operator's prompt.
#pragma once

namespace bootforge {

/// Runs /bin/sh on the standard streams, in a session of its own that has the terminal on standard
/// input as its controlling terminal, and waits for it to end. A shell that cannot be started is a
/// line in the log. On a worker, without the graph lock.
void runTroubleshootingShell();

}  // namespace bootforge
