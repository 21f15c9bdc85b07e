// The three standard streams of forked children, and of the program itself.
#pragma once

namespace bootforge {

/// Detaches a forked child's standard streams: input from /dev/null, output and error appended to
/// `path` (made with mode 0644 when missing). A link in its place is followed only when it is
/// root's or ours in a folder that nobody else may write; otherwise the file counts as one that
/// cannot be opened. Each failure is a warning in the log; when the file cannot be opened, output
/// and error stay as they were.
void redirectStandardStreams(const char* path);

/// Opens /dev/null on each of the descriptors 0 to 2 that is closed, so that no later file takes
/// the place of a standard stream.
void openMissingStandardStreams();

/// Closes every descriptor from `first` on: close_range(2), or those that /proc lists, or one by
/// one below sysconf(_SC_OPEN_MAX), which may be a thousand million. Async-signal-safe.
void closeOtherDescriptors(int first = 3);

}  // namespace bootforge
