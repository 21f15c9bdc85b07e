#include "analyze/recorded/messages_reader.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "analyze/recorded/message_line.h"
#include "analyze/recorded/prefix.h"

namespace bootforge::analyze {
namespace {

using Outcome = PluginMessages::Outcome;

bool takeEnd(std::string_view& text, std::string_view suffix) {
  if (!text.ends_with(suffix)) return false;
  text.remove_suffix(suffix.size());
  return true;
}

/// The plugins of one run as one log tells of them.
struct Run {
  std::map<std::string, PluginMessages, std::less<>> plugins;
  std::map<std::pair<std::string_view, std::string>, std::size_t>
      notices;  // kind and name -> times
  std::string process;
};

/// One log: the kernel's, or the program's own on standard output or in syslog.
class Stream {
 public:
  explicit Stream(const KnownNames& known) : known_(known) {}

  void read(const MessageLine& line, bool mayBeCut) {
    std::string_view text = line.text;
    if (text == "Launching Executor") {
      startRun(line);
    } else if (take(text, "Activating Bootforge plugin ")) {
      tellsSuccess_ = true;
      if (takeEnd(text, ".")) begin("kernel", text, line, mayBeCut);
    } else if (take(text, "starting execution of plugin: ")) {
      tellsSuccess_ = true;
      begin("trace", text, line, mayBeCut);
    } else if (take(text, "executing start plugin: ") ||
               take(text, "executing host profile plugin: ")) {
      begin("log", text, line, mayBeCut);
    } else if (take(text, "Bootforge plugin ")) {
      readKernelEnd(text, line);
    } else if (take(text, "skipping plugin ")) {
      if (takeEnd(text, " (interactive mode request)")) end(text, line, Outcome::Skipped);
    } else if (take(text, "completed execution of plugin: ")) {
      tellsSuccess_ = true;
      const std::size_t duration = text.rfind(" (took ");
      if (text.ends_with(" us)") && duration != std::string_view::npos) {
        end(text.substr(0, duration), line, Outcome::Activated);
      }
    } else {
      readFailure(text, line);
    }
  }

  const Run* choose(WhichRun which) const {
    const Run* chosen = nullptr;
    std::size_t most = 0;
    for (const Run& run : runs_) {
      std::size_t mentions = 0;
      for (const auto& [name, plugin] : run.plugins) mentions += known_.contains(name) ? 1 : 0;
      if (which == WhichRun::Last) mentions = mentions > 0 ? 1 : 0;
      if (chosen == nullptr || mentions >= most) {
        chosen = &run;
        most = mentions;
      }
    }
    return chosen;
  }

  bool tellsSuccess() const { return tellsSuccess_; }

 private:
  void startRun(const MessageLine& line) {
    if (runs_.empty() || !runs_.back().plugins.empty()) runs_.emplace_back();
    runs_.back().process = line.process;
  }

  Run& runOf(const MessageLine& line) {
    if (runs_.empty() || runs_.back().process != line.process) startRun(line);
    return runs_.back();
  }

  std::string nameFor(std::string_view shown) const {
    const std::string* const name = known_.find(shown);
    return name != nullptr ? *name : std::string(shown);
  }

  bool isMentioned(std::string_view shown) const {
    return known_.find(shown) != nullptr ||
           (!runs_.empty() && runs_.back().plugins.contains(shown));
  }

  void begin(std::string_view notice, std::string_view shown, const MessageLine& line,
             bool mayBeCut) {
    if (mayBeCut && known_.find(shown) == nullptr) return;
    const std::string name = nameFor(shown);
    Run* run = &runOf(line);
    const std::size_t plugins = std::max<std::size_t>(1, known_.count(name));
    if (run->notices[{notice, name}] == plugins) {  // once more than it can begin in one run
      startRun(line);
      run = &runs_.back();
    }
    ++run->notices[{notice, name}];
    PluginMessages& plugin = run->plugins[name];
    keep(plugin, line);
    if (!plugin.begun) plugin.since = line.time;
    plugin.begun = true;
  }

  void end(std::string_view shown, const MessageLine& line, Outcome outcome,
           std::string_view reason = {}) {
    PluginMessages& plugin = runOf(line).plugins[nameFor(shown)];
    keep(plugin, line);
    if (plugin.outcome == Outcome::Failed) return;
    plugin.outcome = outcome;
    plugin.reason = reason;
  }

  static void keep(PluginMessages& plugin, const MessageLine& line) {
    plugin.messages.push_back({std::string(line.time), std::string(line.text)});
  }

  void readKernelEnd(std::string_view text, const MessageLine& line) {
    tellsSuccess_ = true;
    if (readSplit(text, " activation failed: ", line)) return;
    if (takeEnd(text, " activated.")) end(text, line, Outcome::Activated);
  }

  /// A failure as "NAME SEPARATOR REASON". A name may hold the separator: then it is known.
  bool readSplit(std::string_view text, std::string_view separator, const MessageLine& line) {
    const std::size_t place = placeOf(text, separator);
    if (place == std::string_view::npos) return false;
    end(text.substr(0, place), line, Outcome::Failed, text.substr(place + separator.size()));
    return true;
  }

  void readFailure(std::string_view text, const MessageLine& line) {
    if (take(text, "Method invocation failed: ")) {
      for (const char* method : {"->start() failed: ", "->apply_host_profile() failed: "}) {
        const std::size_t place = placeOf(text, method);
        if (place == std::string_view::npos) continue;
        // The reason is the whole text, as it is in the kernel's log.
        end(text.substr(0, place), line, Outcome::Failed, text);
        return;
      }
    } else if (take(text, "unhandled exception whilst processing ")) {
      readSplit(text, ": ", line);
    } else if (take(text, "ignoring unknown exception whilst processing ")) {
      if (takeEnd(text, " ...")) end(text, line, Outcome::Failed, "unknown exception");
    } else if (takeEnd(text, " started.") && isMentioned(text)) {
      end(text, line, Outcome::Activated);
    }
  }

  /// Where what follows a mentioned name begins, otherwise where it stands first.
  std::size_t placeOf(std::string_view text, std::string_view separator) const {
    const std::size_t first = text.find(separator);
    for (std::size_t place = first; place != std::string_view::npos;
         place = text.find(separator, place + separator.size())) {
      if (isMentioned(text.substr(0, place))) return place;
    }
    return first;
  }

  const KnownNames& known_;
  std::vector<Run> runs_;
  bool tellsSuccess_ = false;
};

void merge(BootMessages& messages, const Run& run) {
  for (const auto& [name, told] : run.plugins) {
    PluginMessages& plugin = messages.plugins[name];
    if (told.begun && !plugin.begun) {
      plugin.begun = true;
      plugin.since = told.since;
    }
    plugin.messages.insert(plugin.messages.end(), told.messages.begin(), told.messages.end());
    if (plugin.outcome == Outcome::None || told.outcome == Outcome::Failed) {
      plugin.outcome = told.outcome;
      plugin.reason = told.reason;
    }
  }
}

}  // namespace

BootMessages readMessages(std::string_view capture, const KnownNames& known, WhichRun which) {
  BootMessages messages;
  Stream kernel(known);
  Stream program(known);
  while (!capture.empty()) {
    const std::size_t end = capture.find('\n');
    const bool terminated = end != std::string_view::npos;
    const std::string line = withoutColours(capture.substr(0, end));
    capture.remove_prefix(terminated ? end + 1 : capture.size());
    const std::optional<MessageLine> message = readMessageLine(line);
    if (!message) continue;
    messages.readable = true;
    (message->process.empty() ? kernel : program).read(*message, !terminated);
  }
  for (const Stream* stream : {&kernel, &program}) {
    if (const Run* const run = stream->choose(which)) merge(messages, *run);
    messages.tellsSuccess = messages.tellsSuccess || stream->tellsSuccess();
  }
  return messages;
}

}  // namespace bootforge::analyze
