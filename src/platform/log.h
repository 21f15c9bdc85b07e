// The host's logging library.
//
// Levels: 2 for errors that abort a step, 3 for failures that skip an item, 4 for notices, 5 for
// information. Every function may be called from any thread; one lock covers all outputs, and it is
// held across fork(2), so that a forked child can always log.
#pragma once

#include <cstdarg>

struct Dictionary;
struct LogOutput;

extern "C" {

/// Product data for the head of a log. The strings are copied.
void Log_SetProductInfo(const char* name, const char* version, const char* buildNumber,
                        const char* compilationOption);

/// Sets up the syslog(3) output. Keys: "log.syslogID", "log.syslogLevel". False when that failed.
bool Log_InitWithSyslogInt(const char* identity, Dictionary* config, int flags);

/// A new output on standard output, or null. Keys: "log.stdoutLevel", "log.useTimeStamps.stdio",
/// "log.useMilliseconds.stdio".
LogOutput* Log_NewStdioOutput(const char* identity, Dictionary* config, int flags);

/// Adds an output, which the library owns from then on. False when that failed.
bool Log_AddOutput(LogOutput* output);

/// Which levels are also echoed to standard error; (0, -1) echoes none.
void Log_SetStderrLevel(int from, int to);

/// Logs one message. Trailing line breaks are dropped. Keeps errno.
void Log_Level(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Writes one message to the syslog(3) output only, at a priority of syslog(3). Keeps errno.
void Log_Syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Lets go of the connection to the syslog daemon, so that its descriptor may be closed; the next
/// message opens a new one. For a forked child, before it closes its descriptors.
void Log_Detach();

/// Log_Level at level 3.
void Warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Writes the text to the log at level 2 and to standard error, then aborts.
[[noreturn]] void Panic(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// vasprintf(3) that never returns null: it aborts when memory is out. The caller frees the result.
char* Str_SafeVasprintf(const char* format, va_list arguments)
    __attribute__((format(printf, 1, 0)));

}  // extern "C"
