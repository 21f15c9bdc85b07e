#include "tools/adopt/inittab.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "util/exception.h"

namespace bootforge::adopt {
namespace {

constexpr const char* kMark = "# bootforge-adopt: ";
constexpr const char* kStart = " --daemon=wait --method=start --parallel";
constexpr const char* kStop = " --daemon=wait --method=stop --parallel";
constexpr const char* kMakeRunFolder = " -p -m 0755 /var/run/nimbus";
constexpr const char* kBlank = " \t";

/// "id:levels:action:process"; busybox takes a terminal for the id and knows no levels.
struct InitLine {
  std::size_t at = 0;
  std::string id, levels, action, process;

  bool isAtLevel(char level) const { return levels.find(level) != std::string::npos; }
  std::string field(const std::string& newProcess) const {
    return id + ':' + levels + ':' + action + ':' + newProcess + '\n';
  }
};

std::string withoutEnd(std::string line) {
  if (line.ends_with('\n')) line.pop_back();
  return line;
}

/// Comments, blank lines and what is no line of the format left out.
std::vector<InitLine> readLines(const Lines& lines) {
  std::vector<InitLine> found;
  for (std::size_t at = 0; at < lines.size(); ++at) {
    std::string rest = withoutEnd(lines[at]);
    rest.erase(0, std::min(rest.find_first_not_of(kBlank), rest.size()));
    if (rest.empty() || rest.starts_with('#')) continue;
    std::array<std::string, 3> fields;
    bool isWhole = true;
    for (std::string& field : fields) {
      const std::size_t colon = rest.find(':');
      isWhole = isWhole && colon != std::string::npos;
      if (!isWhole) break;
      field = rest.substr(0, colon);
      rest.erase(0, colon + 1);
    }
    if (isWhole) found.push_back({at, fields[0], fields[1], fields[2], rest});
  }
  return found;
}

std::vector<std::string> wordsOf(const std::string& process) {
  std::istringstream stream(process);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  // sysvinit: no accounting; busybox: a login shell.
  if (!words.empty()) words[0].erase(0, words[0].find_first_not_of("+-"));
  while (words.size() > 1 && (words[0] == "exec" || words[0] == "/bin/sh")) {
    words.erase(words.begin());
  }
  return words;
}

bool runs(const std::string& program, const std::string& process) {
  const std::vector<std::string> words = wordsOf(process);
  return !words.empty() && words[0].substr(words[0].rfind('/') + 1) == program;
}

/// Whether it is "/etc/init.d/rc LEVEL".
bool runsLevel(const InitLine& line, char level) {
  const std::vector<std::string> words = wordsOf(line.process);
  return words.size() == 2 && runs("rc", line.process) && words[1] == std::string(1, level);
}

[[noreturn]] void refuse(const std::string& file, const std::string& reason) {
  throw Exception(file + ": " + reason);
}

void checkThatNobodyRunsIt(const std::string& file, const std::vector<InitLine>& lines) {
  for (const InitLine& line : lines) {
    const std::vector<std::string> words = wordsOf(line.process);
    const bool isDaemonRun = std::any_of(words.begin(), words.end(), [](const std::string& word) {
      return word.starts_with("--daemon");
    });
    if (!isDaemonRun || !runs("bootforge", line.process)) continue;
    refuse(file, "line " + std::to_string(line.at + 1) +
                     " runs bootforge already; take out what was put in by hand first");
  }
}

/// The one line that is asked for. Throws when there are two.
template <typename Condition>
const InitLine* onlyLine(const std::string& file, const std::vector<InitLine>& lines,
                         Condition condition) {
  const InitLine* found = nullptr;
  for (const InitLine& line : lines) {
    if (!condition(line)) continue;
    if (found != nullptr) {
      refuse(file, "lines " + std::to_string(found->at + 1) + " and " +
                       std::to_string(line.at + 1) + " both start the init scripts");
    }
    found = &line;
  }
  return found;
}

class SysvinitPlan {
 public:
  SysvinitPlan(const std::string& file, const Lines& lines, const Programs& programs)
      : file_(file), texts_(lines), lines_(readLines(lines)), programs_(programs) {
    for (const InitLine& line : lines_) ids_.insert(line.id);
  }

  InittabPlan make() {
    checkThatNobodyRunsIt(file_, lines_);
    InittabPlan plan;
    plan.level = defaultLevel();
    const InitLine* const start = onlyLine(file_, lines_, [&](const InitLine& line) {
      return line.isAtLevel(plan.level) && runsLevel(line, plan.level);
    });
    if (start == nullptr) {
      refuse(file_, std::string("no line runs /etc/init.d/rc ") + plan.level +
                        ", so it is not known how this host starts its init scripts");
    }
    plan.changes.push_back(startChange(*start, plan.level));
    for (const char level : {'0', '6'}) plan.changes.push_back(stopChange(level));
    std::sort(plan.changes.begin(), plan.changes.end(),
              [](const Change& one, const Change& other) { return one.line < other.line; });
    return plan;
  }

 private:
  char defaultLevel() const {
    const InitLine* const found =
        onlyLine(file_, lines_, [](const InitLine& line) { return line.action == "initdefault"; });
    if (found != nullptr && found->levels.size() == 1 && found->levels >= "2" &&
        found->levels <= "5") {
      return found->levels[0];
    }
    refuse(file_, "no line \"initdefault\" names a level from 2 to 5");
  }

  Change startChange(const InitLine& line, char level) {
    Change change{line.at, {texts_[line.at]}, {}};
    change.added = {kMark + std::string("in the place of ") + withoutEnd(texts_[line.at]) + '\n',
                    freeId("bfr") + ':' + std::string(1, level) + ":wait:" + programs_.mkdir +
                        kMakeRunFolder + '\n',
                    line.field(programs_.bootforge + kStart)};
    return change;
  }

  Change stopChange(char level) {
    const auto line = std::find_if(lines_.begin(), lines_.end(), [&](const InitLine& each) {
      return each.isAtLevel(level) && runsLevel(each, level);
    });
    if (line == lines_.end()) {
      refuse(file_, std::string("no line runs /etc/init.d/rc ") + level +
                        ", so it is not known how this host stops its init scripts");
    }
    return {line->at,
            {},
            {kMark + std::string("before rc ") + level + '\n',
             freeId(std::string("bf") + level) + ':' + level + ":wait:" + programs_.bootforge +
                 kStop + '\n'}};
  }

  /// At most four characters, and nobody else's: init leaves out a line with an id that it knows.
  std::string freeId(const std::string& wish) {
    std::string id = wish;
    for (char end = 'a'; !ids_.insert(id).second; ++end) {
      if (end > 'z') refuse(file_, "all names of lines like " + wish + " are taken");
      id = wish + end;
    }
    return id;
  }

  const std::string& file_;
  const Lines& texts_;
  std::vector<InitLine> lines_;
  const Programs& programs_;
  std::set<std::string> ids_;
};

/// New lines before line `at`, also behind a last line that has no newline.
Change insertion(const Lines& lines, std::size_t at, Lines added) {
  if (at < lines.size() || lines.empty() || lines.back().ends_with('\n')) {
    return {at, {}, std::move(added)};
  }
  added.insert(added.begin(), lines.back() + '\n');
  return {at - 1, {lines.back()}, std::move(added)};
}

}  // namespace

InittabPlan planForSysvinit(const std::string& file, const std::string& text,
                            const Programs& programs) {
  const Lines lines = linesOf(text);
  return SysvinitPlan(file, lines, programs).make();
}

InittabPlan planForBusybox(const std::string& file, const std::string& text,
                           const Programs& programs) {
  const Lines texts = linesOf(text);
  const std::vector<InitLine> lines = readLines(texts);
  checkThatNobodyRunsIt(file, lines);
  InittabPlan plan;
  const InitLine* const rc = onlyLine(file, lines, [&](const InitLine& line) {
    for (const char level : {'2', '3', '4', '5'}) {
      if (!runsLevel(line, level)) continue;
      plan.level = level;
      return true;
    }
    return false;
  });
  Lines start = {"::sysinit:" + programs.mkdir + kMakeRunFolder + '\n',
                 "::sysinit:" + programs.bootforge + kStart + '\n'};
  Lines stop = {kMark + std::string("the init scripts stop\n"),
                "::shutdown:" + programs.bootforge + kStop + '\n'};
  std::size_t afterStart = 0;
  std::size_t beforeStop = texts.size();
  for (const InitLine& line : lines) {
    if (runs("openrc", line.process)) {
      refuse(file, "line " + std::to_string(line.at + 1) +
                       " runs openrc, whose scripts bootforge does not start");
    }
    if (line.action == "sysinit") afterStart = line.at + 1;
    if (line.action == "shutdown") beforeStop = std::min(beforeStop, line.at);
  }
  if (rc != nullptr) {
    start = {kMark + std::string("in the place of ") + withoutEnd(texts[rc->at]) + '\n',
             "::" + rc->action + ':' + programs.mkdir + kMakeRunFolder + '\n',
             rc->field(programs.bootforge + kStart)};
    plan.changes.push_back({rc->at, {texts[rc->at]}, std::move(start)});
  } else {
    start.insert(start.begin(), kMark + std::string("the init scripts start\n"));
    plan.changes.push_back(insertion(texts, afterStart, std::move(start)));
  }
  Change stopping = insertion(texts, beforeStop, stop);
  if (!stopping.removed.empty() && stopping.line == plan.changes.back().line) {
    // Both come behind a last line without a newline, or one takes its place.
    Lines& added = plan.changes.back().added;
    added.insert(added.end(), stop.begin(), stop.end());
    return plan;
  }
  plan.changes.push_back(std::move(stopping));
  std::stable_sort(plan.changes.begin(), plan.changes.end(),
                   [](const Change& one, const Change& other) { return one.line < other.line; });
  return plan;
}

std::string defaultInittab() {
  return "# Made by bootforge-adopt: what busybox's init does where this file is missing, and "
         "bootforge.\n"
         "::sysinit:/etc/init.d/rcS\n"
         "::askfirst:-/bin/sh\n"
         "tty2::askfirst:-/bin/sh\n"
         "tty3::askfirst:-/bin/sh\n"
         "tty4::askfirst:-/bin/sh\n"
         "::ctrlaltdel:/sbin/reboot\n"
         "::shutdown:/sbin/swapoff -a\n"
         "::shutdown:/bin/umount -a -r\n"
         "::restart:/sbin/init\n";
}

}  // namespace bootforge::adopt
