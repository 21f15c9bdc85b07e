#include "main/closing_steps.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <optional>
#include <sstream>

#include "cli/hypcli_executor.h"
#include "platform/config_store.h"
#include "platform/log.h"
#include "util/regular_file.h"
#include "util/shell.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

constexpr const char* kSyslogConfiguration = "/etc/syslog.conf";
constexpr const char* kSyslogUpgrade = "/usr/lib/nimbus/hvsyslog/bin/upgrade-syslog.conf.sh";
constexpr const char* kSyslogPidFile = "/var/run/nimbus/hvsyslogd.pid";

/// Takes one closing step; a failure is a line of that format, and the next step follows.
void attempt(void (*step)(), const char* failure) {
  std::string reason = "unknown exception";
  try {
    step();
    return;
  } catch (const std::exception& error) {
    reason = error.what();
  } catch (...) {
  }
  Log_Level(2, failure, reason.c_str());
}

}  // namespace

void reloadSyslogDaemon() {
  if (::access(kSyslogConfiguration, F_OK) == 0) {
    if (runShell(kSyslogUpgrade) == -1) Log_Level(2, "failed to call %s\n", kSyslogUpgrade);
  } else if (errno != ENOENT) {
    Log_Level(3, "unable to look for %s: %s.\n", kSyslogConfiguration,
              systemErrorText(errno).c_str());
  }
  const UniqueFd file = openRegularFile(kSyslogPidFile);
  if (!file) {
    Log_Level(3, "unable to open hvksyslogd pid file.\n");
    return;
  }
  std::istringstream text(readAll(file).value_or(""));
  pid_t daemon = 0;
  // kill(2) takes 0 and negative numbers for groups of processes.
  if (!(text >> daemon) || daemon <= 0) {
    Log_Level(2, "unable to read hvsyslogd pid.\n");
    return;
  }
  if (::kill(daemon, SIGUSR1) != 0) {
    Log_Level(3, "failed to reload hvsyslogd: %s.\n", systemErrorText(errno).c_str());
  }
}

bool stopCliExecutor() {
  try {
    HypcliExecutor::instance().stop();
    return true;
  } catch (const std::exception& error) {
    Log_Level(2, "Failed to stop Executor: %s\n", error.what());
  } catch (...) {
    Log_Level(2, "Failed to stop Executor\n");
  }
  return false;
}

bool endBoot() {
  const bool stopped = stopCliExecutor();
  attempt(&HypConfigStore::EndAutoConf, "Failed to disable autoconf: %s\n");
  attempt(&HypConfigStore::CleanupBootState, "Failed to cleanup boot state: %s\n");
  return stopped;
}

}  // namespace bootforge
