// The logging, dictionary and product-state calls of the double.
#include "platform/log.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/dictionary.h"
#include "platform/product_state.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"

struct Dictionary {
  std::vector<std::pair<std::string, std::string>> entries;  // in the order of their first setting
};

struct LogOutput {};

namespace {

using bootforge::doubles::append;
using bootforge::doubles::Kind;
using bootforge::doubles::script;

std::atomic<int> dictionaries = 0;
LogOutput standardOutput;

std::string format(const char* pattern, va_list arguments) {
  const std::unique_ptr<char, decltype(&std::free)> text(Str_SafeVasprintf(pattern, arguments),
                                                         &std::free);
  return text.get();
}

void logText(int level, const std::string& text) {
  const int savedError = errno;
  if (script().onLog) script().onLog(text);
  append(Kind::kLog, level, text);
  errno = savedError;
}

std::string textOf(const Dictionary* dictionary) {
  std::string text = "{";
  for (const auto& [key, value] : dictionary->entries) {
    if (text.size() > 1) text += ", ";
    text += key + "=" + value;
  }
  return text + "}";
}

void set(Dictionary* dictionary, const char* key, std::string value) {
  for (auto& entry : dictionary->entries) {
    if (entry.first == key) {
      entry.second = std::move(value);
      return;
    }
  }
  dictionary->entries.emplace_back(key, std::move(value));
}

}  // namespace

namespace bootforge::doubles {
int liveDictionaries() { return dictionaries; }
}  // namespace bootforge::doubles

extern "C" {

Dictionary* Dictionary_Create() {
  ++dictionaries;
  return new Dictionary;
}

void Dict_SetString(Dictionary* dictionary, const char* value, const char* key) {
  set(dictionary, key, value);
}

void Dict_SetBool(Dictionary* dictionary, bool value, const char* key) {
  set(dictionary, key, value ? "true" : "false");
}

void Dictionary_Clear(Dictionary* dictionary) { dictionary->entries.clear(); }

void Dictionary_Free(Dictionary* dictionary) {
  --dictionaries;
  delete dictionary;
}

const char* ProductState_GetName() { return "double"; }
const char* ProductState_GetVersion() { return "1.0"; }
const char* ProductState_GetBuildNumberString() { return "build-1"; }
const char* ProductState_GetCompilationOption() { return "test"; }

void Log_SetProductInfo(const char* name, const char* version, const char* buildNumber,
                        const char* compilationOption) {
  append(Kind::kLogSetup, 0,
         std::string("Log_SetProductInfo ") + name + " " + version + " " + buildNumber + " " +
             compilationOption);
}

bool Log_InitWithSyslogInt(const char* identity, Dictionary* config, int flags) {
  append(Kind::kLogSetup, 0,
         std::string("Log_InitWithSyslogInt ") + identity + " " + textOf(config) + " " +
             std::to_string(flags));
  return script().logInitSucceeds;
}

LogOutput* Log_NewStdioOutput(const char* identity, Dictionary* config, int flags) {
  append(Kind::kLogSetup, 0,
         std::string("Log_NewStdioOutput ") + identity + " " + textOf(config) + " " +
             std::to_string(flags));
  return script().logNewOutputSucceeds ? &standardOutput : nullptr;
}

bool Log_AddOutput(LogOutput*) {
  append(Kind::kLogSetup, 0, "Log_AddOutput");
  return script().logAddOutputSucceeds;
}

void Log_SetStderrLevel(int from, int to) {
  append(Kind::kLogSetup, 0,
         "Log_SetStderrLevel " + std::to_string(from) + " " + std::to_string(to));
}

void Log_Detach() { append(Kind::kLogSetup, 0, "Log_Detach"); }

void Log_Level(int level, const char* pattern, ...) {
  va_list arguments;
  va_start(arguments, pattern);
  logText(level, format(pattern, arguments));
  va_end(arguments);
}

void Log_Syslog(int priority, const char* pattern, ...) {
  va_list arguments;
  va_start(arguments, pattern);
  append(Kind::kSyslog, priority, format(pattern, arguments));
  va_end(arguments);
}

void Warning(const char* pattern, ...) {
  va_list arguments;
  va_start(arguments, pattern);
  std::string text = format(pattern, arguments);
  va_end(arguments);
  if (text.empty() || text.back() != '\n') text += '\n';
  logText(3, text);
}

void Panic(const char* pattern, ...) {
  va_list arguments;
  va_start(arguments, pattern);
  const std::string text = format(pattern, arguments);
  va_end(arguments);
  logText(2, text);
  std::fputs(text.c_str(), stderr);
  std::abort();
}

char* Str_SafeVasprintf(const char* pattern, va_list arguments) {
  char* text = nullptr;
  if (::vasprintf(&text, pattern, arguments) < 0) std::abort();
  return text;
}

}  // extern "C"
