// One request of the control socket, in the executor process.
#pragma once

#include "util/unique_fd.h"

namespace bootforge {

/// Reads the request of a connection. A command is run to its end and answered with its status;
/// true means that it was a request to stop, which is logged and not answered. Whatever goes wrong
/// is logged, and the caller's next connection is not affected. For the event-loop thread.
bool handleRequest(const UniqueFd& connection);

}  // namespace bootforge
