#include "platform/log.h"

#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/descriptor.h"
#include "platform/linux/dictionary_values.h"
#include "platform/linux/outlet.h"
#include "platform/linux/text.h"

/// Writes to standard output. `priority` is the least important one of syslog(3) that is let in.
struct LogOutput {
  std::string identity;
  int priority = LOG_INFO;
  bool timeStamps = true;
  bool milliseconds = true;
  host_linux::Loss loss = {};
  bool cutOff = false;  // the terminal has the beginning of a line
  LogOutput* next = nullptr;
};

namespace {

using host_linux::Delivery;
using host_linux::ErrnoKeeper;
using std::chrono::milliseconds;

using CString = std::unique_ptr<char, decltype(&std::free)>;

/// How long a message waits for somebody to take it.
constexpr milliseconds kTerminalPatience(1000);

constexpr const char* kLevelNames[] = {"error",   "error",  "error", "error",
                                       "warning", "notice", "info",  "debug"};

/// The process's logging. It is never destroyed and needs no constructor to run: messages may come
/// at any time.
struct Log {
  /// Guards all that follows. Held across fork(2), so that a child whose parent has other threads
  /// finds it free.
  std::mutex mutex;
  bool forkPrepared = false;
  char* syslogIdentity = nullptr;  // null = no syslog output
  int syslogPriority = 0;
  host_linux::SyslogSocket syslogSocket;
  host_linux::Loss syslogLoss;
  LogOutput* outputs = nullptr;
  int stderrFrom = 0;
  int stderrTo = -1;
};
constinit Log theLog;

int priorityOf(int level) {
  if (level <= 2) return LOG_ERR;
  if (level == 3) return LOG_WARNING;
  if (level == 4) return LOG_NOTICE;
  return level == 5 ? LOG_INFO : LOG_DEBUG;
}

/// The threshold that `key` sets, by default "info". None when the text names no level.
std::optional<int> readThreshold(const Dictionary* config, const char* key) {
  const std::string* text = host_linux::findString(config, key);
  if (!text) return LOG_INFO;
  for (int priority = LOG_ERR; priority <= LOG_DEBUG; ++priority) {
    if (*text == kLevelNames[priority]) return priority;
  }
  return std::nullopt;
}

std::string identityOrDefault(const char* identity) {
  return identity ? identity : program_invocation_short_name;
}

std::string_view withoutTrailingNewlines(std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

CString composed(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));
CString composed(const char* format, va_list arguments) {
  return {Str_SafeVasprintf(format, arguments), &std::free};
}

/// "2026-03-05T07:04:09.000Z ". By calendar arithmetic and not by gmtime_r(3), whose lock another
/// thread may hold while we fork.
void appendTimeStamp(std::string& line, std::chrono::system_clock::time_point now,
                     bool withMilliseconds) {
  using namespace std::chrono;
  auto day = floor<days>(now);
  year_month_day date(day);
  hh_mm_ss time(floor<std::chrono::milliseconds>(now - day));
  char text[64];
  int length = std::snprintf(
      text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
      static_cast<int>(time.seconds().count()));
  line.append(text, static_cast<std::size_t>(length));
  if (withMilliseconds) {
    length = std::snprintf(text, sizeof text, ".%03d", static_cast<int>(time.subseconds().count()));
    line.append(text, static_cast<std::size_t>(length));
  }
  line += "Z ";
}

/// The whole message in one write. Where standard output is gone, there is nobody to tell.
void writeLine(int fd, const std::string& line) {
  host_linux::writeAll(fd, line.data(), line.size());
}

Delivery writeLineToStdout(LogOutput& output, int priority, std::string_view text,
                           milliseconds patience) {
  std::string line;
  line.reserve(text.size() + output.identity.size() + 64);
  if (output.cutOff) line += '\n';
  if (output.timeStamps) {
    appendTimeStamp(line, std::chrono::system_clock::now(), output.milliseconds);
  }
  line += kLevelNames[priority];
  line += ' ';
  line += output.identity;
  line += '[';
  line += std::to_string(getpid());  // at each message: a child logs under its own
  line += "]: ";
  line += text;
  line += '\n';
  if (!isatty(STDOUT_FILENO)) {
    output.cutOff = false;
    writeLine(STDOUT_FILENO, line);
    return Delivery::kDone;
  }
  bool begun = false;
  const Delivery delivery = host_linux::writeToTerminal(STDOUT_FILENO, line, patience, &begun);
  if (begun) output.cutOff = delivery != Delivery::kDone;
  return delivery;
}

void writeToStdout(LogOutput& output, int priority, std::string_view text) {
  host_linux::deliver(output.loss, kTerminalPatience, priority, text,
                      [&output](int itsPriority, std::string_view itsText, milliseconds patience) {
                        return writeLineToStdout(output, itsPriority, itsText, patience);
                      });
}

void echoToStderr(int priority, std::string_view text) {
  std::string line = program_invocation_short_name;
  line += ": ";
  line += kLevelNames[priority];
  line += ": ";
  line += text;
  line += '\n';
  writeLine(STDERR_FILENO, line);
}

/// Requires the lock.
void writeToSyslog(int priority, std::string_view text) {
  if (!theLog.syslogIdentity || LOG_PRI(priority) > theLog.syslogPriority) return;
  host_linux::deliver(theLog.syslogLoss, host_linux::kSyslogPatience, priority, text,
                      [](int itsPriority, std::string_view itsText, milliseconds patience) {
                        const std::string identity =
                            theLog.syslogIdentity + ("[" + std::to_string(getpid()) + "]");
                        return theLog.syslogSocket.send(
                            host_linux::syslogMessage(itsPriority, identity, itsText), patience);
                      });
}

void logMessage(int level, const char* message) {
  const std::string text = host_linux::withoutControls(withoutTrailingNewlines(message));
  int priority = priorityOf(level);
  std::lock_guard lock(theLog.mutex);
  writeToSyslog(priority, text);
  for (LogOutput* output = theLog.outputs; output; output = output->next) {
    if (priority <= output->priority) writeToStdout(*output, priority, text);
  }
  if (level >= theLog.stderrFrom && level <= theLog.stderrTo) echoToStderr(priority, text);
}

/// What was lost is told by the process that lost it, and not by its children too.
void forgetLosses() {
  theLog.syslogLoss.messages = 0;
  for (LogOutput* output = theLog.outputs; output; output = output->next) {
    output->loss.messages = 0;
  }
}

/// Requires the lock.
bool prepareFork() {
  if (theLog.forkPrepared) return true;
  theLog.forkPrepared = pthread_atfork([] { theLog.mutex.lock(); }, [] { theLog.mutex.unlock(); },
                                       [] {
                                         forgetLosses();
                                         theLog.mutex.unlock();
                                       }) == 0;
  return theLog.forkPrepared;
}

}  // namespace

void Log_SetProductInfo(const char*, const char*, const char*, const char*) {
  // Product data stands at the head of a log, and neither syslog(3) nor standard output has one.
}

bool Log_InitWithSyslogInt(const char* identity, Dictionary* config, int) {
  std::optional<int> threshold = readThreshold(config, "log.syslogLevel");
  if (!threshold) return false;
  const std::string* configured = host_linux::findString(config, "log.syslogID");
  CString name(strdup((configured ? *configured : identityOrDefault(identity)).c_str()),
               &std::free);
  if (!name) return false;
  std::lock_guard lock(theLog.mutex);
  if (!prepareFork()) return false;
  std::free(theLog.syslogIdentity);
  theLog.syslogIdentity = name.release();
  theLog.syslogPriority = *threshold;
  return true;
}

LogOutput* Log_NewStdioOutput(const char* identity, Dictionary* config, int) {
  std::optional<int> threshold = readThreshold(config, "log.stdoutLevel");
  if (!threshold) return nullptr;
  auto output = std::make_unique<LogOutput>();
  output->identity = identityOrDefault(identity);
  output->priority = *threshold;
  if (!host_linux::readBool(config, "log.useTimeStamps.stdio", &output->timeStamps) ||
      !host_linux::readBool(config, "log.useMilliseconds.stdio", &output->milliseconds)) {
    return nullptr;
  }
  return output.release();
}

bool Log_AddOutput(LogOutput* output) {
  if (!output) return false;
  std::lock_guard lock(theLog.mutex);
  if (!prepareFork()) return false;
  LogOutput** end = &theLog.outputs;
  for (; *end; end = &(*end)->next) {
    if (*end == output) return false;
  }
  *end = output;
  return true;
}

void Log_SetStderrLevel(int from, int to) {
  std::lock_guard lock(theLog.mutex);
  theLog.stderrFrom = from;
  theLog.stderrTo = to;
}

void Log_Level(int level, const char* format, ...) {
  ErrnoKeeper keeper;
  va_list arguments;
  va_start(arguments, format);
  CString message = composed(format, arguments);
  va_end(arguments);
  logMessage(level, message.get());
}

void Log_Syslog(int priority, const char* format, ...) {
  ErrnoKeeper keeper;
  va_list arguments;
  va_start(arguments, format);
  CString message = composed(format, arguments);
  va_end(arguments);
  const std::string text = host_linux::withoutControls(withoutTrailingNewlines(message.get()));
  std::lock_guard lock(theLog.mutex);
  writeToSyslog(priority, text);
}

void Log_Detach() {
  ErrnoKeeper keeper;
  std::lock_guard lock(theLog.mutex);
  theLog.syslogSocket.close();
}

void Warning(const char* format, ...) {
  ErrnoKeeper keeper;
  va_list arguments;
  va_start(arguments, format);
  CString message = composed(format, arguments);
  va_end(arguments);
  logMessage(3, message.get());
}

void Panic(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  CString message = composed(format, arguments);
  va_end(arguments);
  logMessage(2, message.get());
  const std::string line =
      host_linux::withoutControls(withoutTrailingNewlines(message.get())) + '\n';
  if (bool begun = false; isatty(STDERR_FILENO)) {
    host_linux::writeToTerminal(STDERR_FILENO, line, kTerminalPatience, &begun);
  } else {
    writeLine(STDERR_FILENO, line);
  }
  std::abort();
}

char* Str_SafeVasprintf(const char* format, va_list arguments) {
  char* result = nullptr;
  if (vasprintf(&result, format, arguments) < 0) {
    constexpr std::string_view kMessage = "out of memory while a message was formatted\n";
    host_linux::writeAll(STDERR_FILENO, kMessage.data(), kMessage.size());
    std::abort();
  }
  return result;
}
