// A parent for a test program: whatever the tests do, somebody is left to tidy up.
#pragma once

#include <string>

namespace bootforge::test {

/// Forks and returns in the child, after `prepare` was run there. The parent never returns: it
/// waits for the child, removes `directory` and exits with the child's status (128 + N for signal
/// N). Processes that the tests left behind are given a moment to end; then they are ended, and the
/// run has failed. SIGINT, SIGTERM and SIGHUP end the child first. The child dies with the parent.
void superviseChild(const std::string& directory, void (*prepare)());

}  // namespace bootforge::test
