// The way of a script's standard error to the syslog daemon.
#pragma once

/// Puts a pipe in the place of descriptor 2, which must be the null device, and starts a process
/// that sends each line of it to the syslog daemon under `name`, until nobody can write any more.
///
/// Neither the script nor the daemon that it starts could write to the syslog daemon itself: what
/// it listens to is no file, and a socket in the place of descriptor 2 would block them while the
/// daemon hangs and lead nowhere once it was started anew. The process reads always, and never
/// waits for the daemon for more than a moment; what it cannot deliver is counted, and told. It
/// belongs to nobody (neither to the script, which does not expect a child, nor to a terminal or a
/// session), is in the control group of the caller, and is not called what the script is called, so
/// that nobody who looks for the script's daemon finds it.
///
/// `words` are those of this process, all of them, and are used up in the new one. Where no process
/// can be made, everything stays as it was.
void relayStandardError(const char* name, int wordCount, char** words);
