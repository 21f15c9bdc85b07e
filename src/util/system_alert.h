// Alerts for the host's operator.
#pragma once

#include <string>

namespace bootforge {

/// Raises a system alert. Never throws: an alert that the host does not take is a line in the log
/// at level 3. Any thread.
void raiseSystemAlert(const std::string& text);

}  // namespace bootforge
