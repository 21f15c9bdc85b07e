// For pipes that outlive the program they were made for.
#pragma once

#include "platform/linux/descriptor.h"

namespace host_linux {

/// Takes over the reading end of a pipe that somebody will go on writing to: a process of its own
/// reads it until nobody has the other end open, however long that is, and throws away what it
/// reads. A writer is then neither killed, as it would be were the reading end closed, nor blocked,
/// and no write of it fails: that is why neither an end that writers keep open themselves nor one
/// that does not block would do, and a file would grow for ever. The process is nobody's child,
/// holds no other descriptor, and outlives this one. Any thread.
void drainInBackground(Descriptor pipe);

}  // namespace host_linux
