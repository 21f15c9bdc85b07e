#include "analyze/recorded/profiling_log_reader.h"

#include <chrono>
#include <utility>

#include "analyze/recorded/prefix.h"
#include "reading/number.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

using Kind = ProfileSection::Kind;

constexpr std::string_view kKernelTime = "HVKernel Initialization Time: ";
constexpr std::size_t kToldLines = 3;
constexpr std::size_t kToldSections = 10;
constexpr std::size_t kLongestName = 255;  // a file's

/// Takes exactly `digits` decimal digits off a text, and the character behind them.
bool takeNumber(std::string_view& text, std::size_t digits, char behind, int& value) {
  if (text.size() < digits) return false;
  value = 0;
  for (std::size_t index = 0; index < digits; ++index) {
    if (text[index] < '0' || text[index] > '9') return false;
    value = value * 10 + (text[index] - '0');
  }
  text.remove_prefix(digits);
  if (behind == '\0') return true;
  return take(text, std::string_view(&behind, 1));
}

/// Takes a moment off a text.
bool takeMoment(std::string_view& text, Moment& moment) {
  using namespace std::chrono;
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int microsecond = 0;
  if (!takeNumber(text, 4, '-', year) || !takeNumber(text, 2, '-', month) ||
      !takeNumber(text, 2, ' ', day) || !takeNumber(text, 2, ':', hour) ||
      !takeNumber(text, 2, ':', minute) || !takeNumber(text, 2, '.', second) ||
      !takeNumber(text, 6, '\0', microsecond)) {
    return false;
  }
  const year_month_day date{std::chrono::year(year),
                            std::chrono::month(static_cast<unsigned>(month)),
                            std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) return false;
  const std::int64_t days = sys_days(date).time_since_epoch().count();
  moment = ((days * 24 + hour) * 60 + minute) * 60 + second;
  moment = moment * 1'000'000 + microsecond;
  return true;
}

struct PluginLine {
  Kind kind = Kind::Boot;
  Moment start = 0;
  Moment end = 0;
  std::string_view name;
};

bool readPluginLine(std::string_view line, PluginLine& plugin) {
  if (!take(line, "[") || !takeMoment(line, plugin.start) || !take(line, " - ") ||
      !takeMoment(line, plugin.end)) {
    return false;
  }
  if (take(line, "] sysboot: ")) {
    plugin.kind = Kind::Boot;
  } else if (take(line, "] daemon: ")) {
    plugin.kind = Kind::Daemon;
  } else {
    return false;
  }
  plugin.name = line;
  return true;
}

class Reader {
 public:
  explicit Reader(const std::function<bool(std::string_view)>& isName) : isName_(isName) {}

  ProfilingLog read(std::string_view text) {
    const bool carriageReturns = hasCarriageReturns(text);
    while (!text.empty()) {
      ++line_;
      const std::size_t end = text.find('\n');
      const bool terminated = end != std::string_view::npos;
      std::string_view line = text.substr(0, end);
      if (carriageReturns && line.ends_with('\r')) line.remove_suffix(1);
      text.remove_prefix(terminated ? end + 1 : text.size());
      if (!terminated) {
        readLast(line);
      } else if (!readLine(line) && !readRestOfName(line)) {
        damagedLines_.push_back(line_);
      }
    }
    closeSection();
    noteDamagedLines();
    return std::move(log_);
  }

 private:
  /// Whether another system has put carriage returns before the line breaks. Names may end with
  /// one, so the first line decides, which has none of its own.
  static bool hasCarriageReturns(std::string_view text) {
    const std::string_view first = text.substr(0, text.find('\n'));
    return first.starts_with(kKernelTime) && first.ends_with('\r');
  }

  bool isName(std::string_view name) const { return isName_ && isName_(name); }

  ProfileSection* current() { return log_.sections.empty() ? nullptr : &log_.sections.back(); }

  ProfileSection& openSection(Kind kind) {
    closeSection();
    closing_ = false;
    ProfileSection& section = log_.sections.emplace_back();
    section.kind = kind;
    return section;
  }

  /// Says what the section that ends here lacks.
  void closeSection() {
    const ProfileSection* const section = current();
    if (section == nullptr || log_.sections.size() > kToldSections) return;
    const std::string number = "section " + std::to_string(log_.sections.size() - 1);
    if (section->kind == Kind::Boot && !section->headed) {
      log_.notes.push_back(number + " lacks its first line");
    }
    if (!section->closed) log_.notes.push_back(number + " ends early: its last lines are missing");
  }

  /// The section of that kind whose plugins are being listed.
  ProfileSection& listOf(Kind kind) {
    ProfileSection* const section = current();
    return section == nullptr || section->kind != kind || closing_ ? openSection(kind) : *section;
  }

  bool readLine(std::string_view line) {
    PluginLine plugin;
    if (readPluginLine(line, plugin)) {
      add(plugin);
      return true;
    }
    if (readHead(line)) return true;
    for (const Kind kind : {Kind::Boot, Kind::Daemon}) {
      if (line != (kind == Kind::Boot ? "=== Bootforge configuration info ==="
                                      : "=== Daemon configuration info ===")) {
        continue;
      }
      listOf(kind);
      closing_ = true;
      return true;
    }
    return readClosing(line);
  }

  void add(const PluginLine& plugin) {
    rest_.clear();
    restLines_ = 0;
    listOf(plugin.kind).plugins.push_back({std::string(plugin.name), plugin.start, plugin.end});
  }

  bool readHead(std::string_view line) {
    if (!take(line, kKernelTime) || line.starts_with('-')) return false;
    const auto microseconds = numberIn<std::int64_t>(line);
    if (!microseconds) return false;
    ProfileSection& section = openSection(Kind::Boot);
    section.headed = true;
    section.kernelMicroseconds = microseconds;
    return true;
  }

  bool readClosing(std::string_view line) {
    struct Time {
      std::string_view label;
      Kind kind;
      std::optional<Moment> ProfileSection::*member;
    };
    static constexpr Time kTimes[] = {{" Start: ", Kind::Boot, &ProfileSection::start},
                                      {" End: ", Kind::Boot, &ProfileSection::end},
                                      {" Start Daemon: ", Kind::Daemon, &ProfileSection::start},
                                      {" End Daemon: ", Kind::Daemon, &ProfileSection::end}};
    for (const Time& time : kTimes) {
      if (!take(line, time.label)) continue;
      const std::optional<Moment> moment = readMoment(line);
      if (!moment) return false;
      ProfileSection* section = current();
      if (section == nullptr || section->kind != time.kind) section = &openSection(time.kind);
      closing_ = true;
      section->*time.member = *moment;
      return true;
    }
    for (const char* label : {" Verbose: ", " Parallel: ", " Randomize: ", " Interactive Mode: "}) {
      if (line.starts_with(label)) return closing_;
    }
    ProfileSection* const section = current();
    if (section == nullptr || !closing_ || !line.starts_with(" Random Seed: ")) return false;
    section->closed = true;
    return true;
  }

  /// The rest of a name that holds a line break: only descriptions tell it from noise.
  bool readRestOfName(std::string_view line) {
    if (!isName_ || current() == nullptr || closing_ || current()->plugins.empty()) return false;
    if (rest_.size() + line.size() > kLongestName) return false;
    rest_ += '\n';
    rest_ += line;
    std::string name = current()->plugins.back().name + rest_;
    if (!isName(name)) {
      ++restLines_;
      return false;
    }
    // The lines before this one were parts of the name too.
    damagedLines_.resize(damagedLines_.size() - restLines_);
    restLines_ = 0;
    rest_.clear();
    current()->plugins.back().name = std::move(name);
    return true;
  }

  /// What stands behind the last line break. Its end may be cut off.
  void readLast(std::string_view line) {
    PluginLine plugin;
    if (readPluginLine(line, plugin)) {
      if (isName(plugin.name)) {
        add(plugin);
      } else {
        log_.notes.emplace_back("the last line is cut off and was left out");
      }
      return;
    }
    if (line.starts_with("HVKernel") || !readLine(line)) {
      log_.notes.emplace_back("the last line is cut off and was left out");
    } else if (current() != nullptr) {
      current()->closed = false;
    }
  }

  void noteDamagedLines() {
    if (damagedLines_.empty()) return;
    std::string numbers;
    for (std::size_t index = 0; index < damagedLines_.size() && index < kToldLines; ++index) {
      numbers += (index == 0 ? "" : ", ") + std::to_string(damagedLines_[index]);
    }
    log_.notes.push_back(damagedLines_.size() == 1
                             ? "line " + numbers + " cannot be read and was left out"
                             : std::to_string(damagedLines_.size()) +
                                   " lines cannot be read and were left out: " + numbers +
                                   (damagedLines_.size() > kToldLines ? ", ..." : ""));
  }

  const std::function<bool(std::string_view)>& isName_;
  ProfilingLog log_;
  bool closing_ = false;  // the current section's plugins are all listed
  std::size_t line_ = 0;
  std::vector<std::size_t> damagedLines_;
  // What has come since the last plugin's line and may be the rest of its name.
  std::string rest_;
  std::size_t restLines_ = 0;
};

}  // namespace

bool endedBeforeItsStart(const ProfiledPlugin& plugin) {
  return plugin.start != 0 && plugin.end != 0 && plugin.end < plugin.start;
}

std::string noteOnItsEnd(const ProfiledPlugin& plugin) {
  return printable(plugin.name) +
         " ended before it started (was the clock set?); it counts as a run of 0";
}

std::optional<Moment> readMoment(std::string_view text) {
  Moment moment = 0;
  if (!takeMoment(text, moment) || !text.empty()) return std::nullopt;
  return moment;
}

ProfilingLog readProfilingLog(std::string_view text,
                              const std::function<bool(std::string_view)>& isName) {
  return Reader(isName).read(text);
}

const ProfileSection* chooseSection(const ProfilingLog& log, std::optional<std::size_t> section,
                                    bool daemons, std::string& reason) {
  const std::size_t count = log.sections.size();
  if (section) {
    if (*section < count) return &log.sections[*section];
    reason = "there is no section " + std::to_string(*section) + ": the log has " +
             std::to_string(count) + (count == 1 ? " section" : " sections") + ", counted from 0";
    return nullptr;
  }
  const ProfileSection* chosen = nullptr;
  for (const ProfileSection& candidate : log.sections) {
    if (candidate.kind == (daemons ? Kind::Daemon : Kind::Boot) && (daemons || chosen == nullptr)) {
      chosen = &candidate;
    }
  }
  if (chosen == nullptr) {
    reason = daemons ? "the log has no section of a daemon run"
                     : "the log has no section of a boot (--daemons looks at the init scripts)";
  }
  return chosen;
}

}  // namespace bootforge::analyze
