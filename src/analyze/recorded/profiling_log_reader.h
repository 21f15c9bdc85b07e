// The profiling log, read back, however damaged it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge::analyze {

/// A moment in microseconds since 1970; 0 for one that was never taken.
using Moment = std::int64_t;

struct ProfiledPlugin {
  std::string name;
  Moment start = 0;
  Moment end = 0;
};

/// Whether the clock was set while it ran: its run counts as 0.
bool endedBeforeItsStart(const ProfiledPlugin& plugin);
/// What is said of it then.
std::string noteOnItsEnd(const ProfiledPlugin& plugin);

/// One run: the plugins of a boot or the init scripts of a daemon run.
struct ProfileSection {
  enum class Kind { Boot, Daemon };

  Kind kind = Kind::Boot;
  std::vector<ProfiledPlugin> plugins;             // in the order of the log
  std::optional<std::int64_t> kernelMicroseconds;  // the kernel's uptime when the run began
  std::optional<Moment> start;                     // of the whole run
  std::optional<Moment> end;
  bool headed = false;  // a boot section whose first line is there
  bool closed = false;  // its last line has been read
};

struct ProfilingLog {
  std::vector<ProfileSection> sections;  // in the order of the file
  std::vector<std::string> notes;        // what is damaged, for people
};

/// Reads a log's text. Lines that cannot be read are left out and noted. A name that holds a line
/// break is put together again where `isName` knows it; a last line without its end counts only
/// when `isName` knows its name, for it may be cut. A log in which nothing can be read has no
/// sections.
ProfilingLog readProfilingLog(std::string_view text,
                              const std::function<bool(std::string_view)>& isName = {});

/// Which section a command is about: number `section` from 0 where it is given, otherwise the
/// boot's or, with `daemons`, that of the last daemon run. Null, with the reason, where there is
/// none.
const ProfileSection* chooseSection(const ProfilingLog& log, std::optional<std::size_t> section,
                                    bool daemons, std::string& reason);

/// "2024-03-05 07:04:09.000321" as the log writes it; none for anything else.
std::optional<Moment> readMoment(std::string_view text);

}  // namespace bootforge::analyze
