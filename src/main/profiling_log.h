// The boot profiling log.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>

#include "catalogue/catalogue.h"

namespace bootforge {

inline constexpr const char* kProfilingLog = "/var/log/sysboot.log";

/// What a run has measured.
struct Profile {
  std::uint64_t kernelMicroseconds = 0;  // the kernel's uptime when the program started
  timeval start{};
  timeval end{};
  const PluginList* plugins = nullptr;  // null when there is no list to tell of
};

/// Replaces the log in one step by this run's. Whatever goes wrong is said in the log; the old file
/// is then as it was. Never throws.
void writeBootProfile(const Profile& profile);

/// Appends this run's section to the log, which is replaced in one step as well. Never throws.
void appendDaemonProfile(const Profile& profile);

/// "2024-03-05 07:04:09.000321": UTC with microseconds.
std::string formatTime(const timeval& time);

}  // namespace bootforge
