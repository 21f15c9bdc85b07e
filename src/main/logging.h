// Setting up the host's logging library.
#pragma once

namespace bootforge {

/// Sets up the two outputs, syslog and time-stamped standard output, under the given identity. What
/// cannot be set up is said on standard error; the program runs on with the rest.
void initialiseLogging(const char* identity);

}  // namespace bootforge
