// What the tests' double of the platform layer answers. Each member may be set by a test while no
// other thread is at work; forked children take it along. reset() (recorder.h) restores the
// defaults, with which everything succeeds.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/autocli.h"

namespace bootforge::doubles {

/// Called with the text that the program hands over, before that is recorded. When it throws,
/// nothing is recorded and the program gets the exception. Called on the program's own threads, by
/// several of them at once.
using Hook = std::function<void(const std::string& text)>;

/// What running a CLI command does; called in the process that runs it.
using CommandHook = std::function<void(const CppTools::AutoCli::CommandInput& input,
                                       CppTools::AutoCli::CommandOutput& output)>;

/// What parsing one command line gives.
struct Parse {
  bool succeeds = true;
  std::vector<std::string> errors{};
  std::list<std::string> path{};
  std::vector<std::pair<std::string, std::string>> parameters{};
};

struct Script {
  Hook onLog;               // Log_Level and Warning, with the formatted text
  Hook onKernelLog;         // Sysinfo::Set
  Hook onAlert;             // SetSystemAlert
  Hook onEndAutoConf;       // with an empty text
  Hook onCleanupBootState;  // with an empty text

  bool logInitSucceeds = true;       // Log_InitWithSyslogInt
  bool logNewOutputSucceeds = true;  // Log_NewStdioOutput
  bool logAddOutputSucceeds = true;  // Log_AddOutput

  std::uint32_t processorCount = 2;
  int processorCountError = 0;  // an error number makes the query fail

  int pollCallbackError = 0;  // an error number makes Poll_Callback fail

  /// Called by AddExternalDirectory with the directory, after it was recorded.
  Hook onAddExternalDirectory;
  /// Results for whole command lines. Any other line is split at blanks: words that begin with "--"
  /// are parameters, NAME=VALUE or NAME (then with the value "true"), all others form the path.
  std::map<std::string, Parse> parses;
  /// What commands do, by their path joined with blanks. Any other command succeeds.
  std::map<std::string, CommandHook> commands;
};

Script& script();

/// Hooks that fail with a std::runtime_error of the text, or with what is no std::exception.
Hook throwsError(std::string what);
Hook throwsOther();

/// A command that fails with these errors.
CommandHook failsWith(std::vector<std::string> errors);
/// A command that leaves by an exception: a std::runtime_error of the text, or something else.
CommandHook commandThrowsError(std::string what);
CommandHook commandThrowsOther();
/// A command that ends, in success, once the file exists. It gives up after a minute, in error.
CommandHook waitsForFile(std::string path);

/// How many dictionaries (platform/dictionary.h) were created and not freed yet.
int liveDictionaries();

}  // namespace bootforge::doubles
