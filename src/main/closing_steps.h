// What is left to do when the graph has run.
#pragma once

namespace bootforge {

/// Upgrades the old syslog configuration, if there is one, and makes the syslog daemon read its
/// configuration anew. Failures are lines in the log.
void reloadSyslogDaemon();

/// Stops the CLI executor. A failure is a line in the log, and false.
bool stopCliExecutor();

/// Stops the CLI executor, ends the automatic-configuration phase and cleans the boot state: each
/// of them, whatever became of the one before. False when the executor could not be stopped.
bool endBoot();

}  // namespace bootforge
