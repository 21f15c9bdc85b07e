// Closing what a child was not meant to have. Async-signal-safe; any thread, any child.
#pragma once

namespace host_linux {

/// Closes every descriptor from `first` on, whatever the limit of descriptors is.
void closeFrom(int first);

}  // namespace host_linux
