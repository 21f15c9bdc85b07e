// The program in a process of its own, and what became of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/main/host_calls.h"

namespace bootforge::test {

struct Outcome {
  int status = -1;  // the exit status, or 1000 and the number of the signal that killed the process
  std::string out;
  std::string err;
};

/// Runs `body` in a forked child, which exits with what it returns. Standard input is /dev/null,
/// standard output and error are kept. A child that takes more than a minute is killed.
Outcome inChild(const std::function<int()>& body);

/// In a child: everything from runProgram() on, with "bootforge" and these words. `after` is called
/// when the program has returned, with its status; its result becomes the status.
int runInThisProcess(std::vector<std::string> words);

/// What the logging set-up tells the host's library.
std::vector<doubles::Record> logSetUp();

/// Each test starts with a fresh double and leaves no process behind.
class ProgramTest : public testing::Test {
 protected:
  ProgramTest();
  ~ProgramTest() override;

  /// The program with "bootforge" and these words. Returns when it and every process that it left
  /// behind have ended.
  static Outcome bootforge(const std::vector<std::string>& words);

  /// Waits until all processes that descend from this one have ended; those that do not in time are
  /// killed and fail the test.
  static void waitForProcesses();

  /// What the program told the host, in order, apart from the logging set-up and from the executor
  /// process's word that it polls, which comes when it comes.
  static std::vector<doubles::Record> events();

  /// Environment for the program.
  static inline std::vector<std::string> environment = {"PATH=/bin", "COLOUR=blue"};
};

/// A description of a plugin that runs these command lines.
std::string description(const std::string& requires_, const std::string& provides,
                        const std::string& start);

/// The same of API version 4: run once, with that version.
std::string runOnceDescription(const std::string& version, const std::string& start);

inline constexpr const char* kProfile = "/var/log/sysboot.log";
inline constexpr const char* kRecord = "/bootbank/bootfrge.gz";
inline constexpr const char* kSocket = "/var/run/nimbus/bootforgeExecutor.sock";
inline constexpr const char* kPlugins = "/usr/libexec/bootforge/plugins/";

}  // namespace bootforge::test
