// Running one management-CLI command line in this process.
#pragma once

#include <string>

namespace bootforge {

/// Parses a command line and runs it to its end. What the parser or the command reports is logged
/// at level 2, one line for each error, and then thrown as one Exception; whatever the CLI
/// framework throws passes through. A line that the parser rejects without an error is run all the
/// same. For the event-loop thread of the executor process.
void executeCommandText(const std::string& text);

}  // namespace bootforge
