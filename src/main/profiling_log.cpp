#include "main/profiling_log.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sstream>

#include "main/run_options.h"
#include "platform/log.h"
#include "util/afstream.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

void writePlugins(std::ostream& out, const Profile& profile, const char* label) {
  if (profile.plugins == nullptr) return;
  for (const auto& plugin : *profile.plugins) {
    out << '[' << formatTime(plugin->activationStart()) << " - "
        << formatTime(plugin->activationEnd()) << ']' << label << plugin->name() << '\n';
  }
}

void writeOptions(std::ostream& out) {
  const RunOptions& options = RunOptions::instance();
  out << " Verbose: " << options.verbose << '\n'
      << " Parallel: " << options.parallel << '\n'
      << " Randomize: " << options.randomize << '\n'
      << " Interactive Mode: " << options.interactive << '\n'
      << " Random Seed: " << options.randomSeed << '\n';
}

/// Opens the log for replacement; false, with a message of that format, when that cannot be done.
bool open(afstream& file, const char* failure) {
  try {
    file.open(kProfilingLog, std::ios_base::trunc);
    return true;
  } catch (const FileError& error) {
    Log_Level(2, failure, kProfilingLog, systemErrorText(error.error()).c_str());
    return false;
  }
}

}  // namespace

std::string formatTime(const timeval& time) {
  std::tm calendar{};
  gmtime_r(&time.tv_sec, &calendar);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%06ld", calendar.tm_year + 1900,
                calendar.tm_mon + 1, calendar.tm_mday, calendar.tm_hour, calendar.tm_min,
                calendar.tm_sec, static_cast<long>(time.tv_usec));
  return text;
}

void writeBootProfile(const Profile& profile) {
  try {
    afstream file;
    if (!open(file, "unable to open profiling log (%s): %s.\n")) return;
    std::ostringstream text;
    text << "HVKernel Initialization Time: " << profile.kernelMicroseconds << '\n';
    writePlugins(text, profile, " sysboot: ");
    text << "=== Bootforge configuration info ===\n"
         << " Start: " << formatTime(profile.start) << '\n'
         << " End: " << formatTime(profile.end) << '\n';
    writeOptions(text);
    writeAndCommit(file, text.str());
  } catch (const std::exception& error) {
    Log_Level(3, "unable to log profiling information: %s.\n", error.what());
  }
}

void appendDaemonProfile(const Profile& profile) {
  try {
    afstream file;
    if (!open(file, "unable to reopen profiling log (%s): %s.\n")) return;
    // Only a log that is not there may be left out: one that cannot be read must not be replaced.
    if (::access(kProfilingLog, F_OK) == 0 || errno != ENOENT) copyFileInto(kProfilingLog, file);
    std::ostringstream text;
    writePlugins(text, profile, " daemon: ");
    text << "=== Daemon configuration info ===\n"
         << " Start Daemon: " << formatTime(profile.start) << '\n'
         << " End Daemon: " << formatTime(profile.end) << '\n';
    writeOptions(text);
    writeAndCommit(file, text.str());
  } catch (const std::exception& error) {
    Log_Level(3, "unable to log daemon profiling information: %s.\n", error.what());
  }
}

}  // namespace bootforge
