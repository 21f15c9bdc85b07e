// Lines in the kernel's log.
#pragma once

namespace bootforge {

/// Formats a text and writes it into the host kernel's system log. Never throws: when the kernel
/// does not take it, syslog(3) gets the reason and the text. Any thread.
void kernelLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace bootforge
