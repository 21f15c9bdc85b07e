// Signals of a process that is about to become another program.
#pragma once

namespace host_linux {

/// Gives every signal its default disposition and blocks none. By the kernel's call: the C
/// library's refuses the two signals that it keeps for itself, which may have been inherited as
/// ignored like any other. Async-signal-safe.
void defaultSignals();

}  // namespace host_linux
