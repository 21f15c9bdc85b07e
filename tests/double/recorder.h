// What the program told the host, as the tests' double of the platform layer saw it.
//
// All processes that descend from the test write into one list, in the order in which things
// happened: the list lies in memory that forked children share, so it survives their closing of all
// descriptors, and a child that is killed in between leaves it whole. Any thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

namespace bootforge::doubles {

enum class Kind {
  kLog,          // Log_Level, Warning, Panic; the level is theirs
  kSyslog,       // Log_Syslog; the level is its priority
  kKernel,       // a line in the kernel's log
  kAlert,        // SetSystemAlert
  kProgress,     // the progress screen: "ProgressText ...", "StatusText ...", "Step"
  kConfigStore,  // "EndAutoConf", "CleanupBootState"
  kLogSetup,     // the name of a logging set-up call with its arguments
  kCli,  // the CLI framework: "Dispatcher", "AddExternalDirectory ...", "ExecuteCommand ..."
};

/// One thing that the program told the host. Compared without the process.
struct Record {
  Kind kind;
  int level = 0;     // 0 where the kind has none
  std::string text;  // exactly as it was given or formatted, line breaks at its end included
  pid_t process = 0;

  bool operator==(const Record& other) const {
    return kind == other.kind && level == other.level && text == other.text;
  }
};

std::ostream& operator<<(std::ostream& stream, const Record& record);

/// Records to compare with: EXPECT_THAT(records(), ElementsAre(logLine(5, "Hello\n"),
/// alert("Ouch"))).
Record logLine(int level, std::string text);
Record syslogLine(int priority, std::string text);
Record kernelLine(std::string text);
Record alert(std::string text);
Record progress(std::string text);
Record configStore(std::string text);
Record logSetup(std::string text);
Record cli(std::string text);

/// Everything since the last reset(), of all kinds or of the given ones.
std::vector<Record> records();
std::vector<Record> records(std::initializer_list<Kind> kinds);

/// Waits until an equal record is there, or an equal one has come `count` times. False when that
/// did not happen in time.
bool waitForRecord(const Record& record, int count = 1,
                   std::chrono::milliseconds limit = std::chrono::seconds(20));

/// Forgets all records and puts the script (script.h) back to its defaults. For the start of each
/// test, while no other thread or process is at work.
void reset();

/// Runs `action` while no process adds a record: for killing one. An emulator that does not know
/// set_robust_list(2) would leave the lock of a killed process taken for ever. The action must
/// neither ask for records nor make any.
void betweenRecords(const std::function<void()>& action);

/// For the double itself: adds a record, unless recording is off.
void append(Kind kind, int level, const std::string& text);

/// Switches recording off or on, for this process and those it forks; benchmarks want none.
void setRecording(bool on);

}  // namespace bootforge::doubles
