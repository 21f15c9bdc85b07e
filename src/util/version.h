// The version of what is running.
#pragma once

namespace bootforge {

/// A release's number ("0.2.0"), or that with the commit that was built ("0.2.0+g1234567890").
/// Lives as long as the program.
const char* version();

}  // namespace bootforge
