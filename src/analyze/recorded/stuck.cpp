#include "analyze/recorded/stuck.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/array.hpp>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "analyze/output/json_output.h"
#include "analyze/recorded/dependencies.h"
#include "analyze/recorded/text_table.h"
#include "analyze/recorded/waiting_cycle.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

enum class Progress { LeftOut, Waiting, Running, Ended };

struct Running {
  std::string name;
  std::string since;
  std::size_t blocks = 0;
};

struct Missing {
  std::string milestone;
  std::vector<std::string> plugins;
};

struct Waiting {
  std::string name;
  std::vector<Missing> missing;
};

class StuckFinder {
 public:
  StuckFinder(const std::vector<KnownPlugin>& known, const BootMessages& messages)
      : known_(known), messages_(messages), dependencies_(pointersTo(known)) {
    for (const KnownPlugin& plugin : known) progress_.push_back(progressOf(plugin));
    findRequirers();
    // Whoever has begun tells that what it waited for has ended, even where no message does.
    for (std::size_t index = 0; index < known_.size(); ++index) {
      if (progress_[index] != Progress::Running && progress_[index] != Progress::Ended) continue;
      dependencies_.forEachRequired(index, [&](std::size_t gate) {
        for (const std::size_t provider : dependencies_.gates()[gate].providers) {
          if (progress_[provider] == Progress::Running) progress_[provider] = Progress::Ended;
        }
      });
    }
  }

  std::vector<Running> running() const {
    std::vector<Running> result;
    std::unordered_set<std::string_view> names;
    for (std::size_t index = 0; index < known_.size(); ++index) {
      names.insert(known_[index].name);
      if (progress_[index] != Progress::Running) continue;
      const auto told = messages_.plugins.find(known_[index].name);
      result.push_back({known_[index].name, told->second.since, countBlocked(index)});
    }
    // What the image does not know may run as well.
    for (const auto& [name, told] : messages_.plugins) {
      if (names.contains(name) || !told.begun || hasEnded(told)) continue;
      result.push_back({name, told.since, 0});
    }
    std::stable_sort(result.begin(), result.end(), [](const Running& one, const Running& other) {
      return one.blocks > other.blocks;
    });
    return result;
  }

  std::vector<Waiting> waiting() const {
    std::vector<Waiting> result;
    for (std::size_t index = 0; index < known_.size(); ++index) {
      if (progress_[index] != Progress::Waiting) continue;
      Waiting& plugin = result.emplace_back();
      plugin.name = known_[index].name;
      dependencies_.forEachRequired(index, [&](std::size_t number) {
        const Gate& gate = dependencies_.gates()[number];
        Missing missing{gate.name, {}};
        for (const std::size_t provider : gate.providers) {
          if (isMissing(provider)) missing.plugins.push_back(known_[provider].name);
        }
        if (!missing.plugins.empty()) plugin.missing.push_back(std::move(missing));
      });
    }
    return result;
  }

  std::vector<std::string> cycle() const {
    std::vector<bool> isWaiting;
    for (const Progress progress : progress_) isWaiting.push_back(progress == Progress::Waiting);
    return shortestCycle(known_, dependencies_, isWaiting);
  }

 private:
  static std::vector<const KnownPlugin*> pointersTo(const std::vector<KnownPlugin>& known) {
    std::vector<const KnownPlugin*> result;
    for (const KnownPlugin& plugin : known) result.push_back(&plugin);
    return result;
  }

  static bool hasEnded(const PluginMessages& told) {
    return told.outcome != PluginMessages::Outcome::None;
  }

  Progress progressOf(const KnownPlugin& plugin) const {
    const auto told = messages_.plugins.find(plugin.name);
    if (told != messages_.plugins.end()) {
      if (hasEnded(told->second)) return Progress::Ended;
      if (told->second.begun) return Progress::Running;
    }
    return plugin.leftOut ? Progress::LeftOut : Progress::Waiting;
  }

  bool isMissing(std::size_t index) const {
    return progress_[index] == Progress::Running || progress_[index] == Progress::Waiting;
  }

  void findRequirers() {
    requirers_.resize(dependencies_.gates().size());
    for (std::size_t index = 0; index < known_.size(); ++index) {
      dependencies_.forEachRequired(index,
                                    [&](std::size_t gate) { requirers_[gate].push_back(index); });
    }
  }

  /// How many plugins wait behind one that does not wait itself, near or far.
  std::size_t countBlocked(std::size_t start) const {
    std::vector<bool> seen(known_.size());
    std::vector<bool> passed(dependencies_.gates().size());
    std::vector<std::size_t> stack = {start};
    std::size_t count = 0;
    while (!stack.empty()) {
      const std::size_t plugin = stack.back();
      stack.pop_back();
      for (const std::size_t gate : dependencies_.provided(plugin)) {
        if (passed[gate]) continue;
        passed[gate] = true;
        for (const std::size_t requirer : requirers_[gate]) {
          if (seen[requirer] || progress_[requirer] != Progress::Waiting) continue;
          seen[requirer] = true;
          ++count;
          stack.push_back(requirer);
        }
      }
    }
    return count;
  }

  const std::vector<KnownPlugin>& known_;
  const BootMessages& messages_;
  const Dependencies dependencies_;
  std::vector<Progress> progress_;
  std::vector<std::vector<std::size_t>> requirers_;  // of each gate
};

std::string asJson(const std::vector<Running>& running, const std::vector<Waiting>& waiting,
                   const std::vector<std::string>& cycle) {
  json::array runningRows;
  for (const Running& plugin : running) {
    runningRows.emplace_back(json::object{
        {"name", jsonText(plugin.name)},
        {"since", plugin.since.empty() ? json::value() : json::value(jsonText(plugin.since))},
        {"blocks", plugin.blocks}});
  }
  json::array waitingRows;
  for (const Waiting& plugin : waiting) {
    json::array reasons;
    for (const Missing& missing : plugin.missing) {
      reasons.emplace_back(json::object{{"milestone", jsonText(missing.milestone)},
                                        {"plugins", jsonTexts(missing.plugins)}});
    }
    waitingRows.emplace_back(
        json::object{{"name", jsonText(plugin.name)}, {"for", std::move(reasons)}});
  }
  return prettyJson(json::object{{"running", std::move(runningRows)},
                                 {"waiting", std::move(waitingRows)},
                                 {"cycle", jsonTexts(cycle)}});
}

std::string joined(const std::vector<std::string>& names, const char* separator) {
  std::string text;
  for (const std::string& name : names) {
    text += (&name == &names.front() ? "" : separator) + printable(name);
  }
  return text;
}

/// The first few of them.
std::string someOf(const std::vector<std::string>& names) {
  constexpr std::size_t kShown = 4;
  if (names.size() <= kShown + 1) return joined(names, ", ");
  const std::vector<std::string> few(names.begin(), names.begin() + kShown);
  return fmt::format("{} and {} more", joined(few, ", "), names.size() - kShown);
}

/// The answer in a sentence: what holds most of the others up.
std::string firstSuspect(const Running& plugin, const TextStyle& style) {
  std::string text = "The boot waits for " + coloured(printable(plugin.name), Colour::Bold, style);
  if (!plugin.since.empty()) text += ", which began at " + printable(plugin.since);
  if (plugin.blocks > 0) {
    text += plugin.since.empty() ? ", which" : " and";
    text += " holds up " + counted(plugin.blocks, "plugin");
  }
  return text + '\n';
}

std::string asText(const std::vector<Running>& running, const std::vector<Waiting>& waiting,
                   const std::vector<std::string>& cycle, const TextStyle& style) {
  if (running.empty() && waiting.empty()) return "Nothing is stuck: all that began has ended\n";
  std::string text;
  if (!cycle.empty()) {
    text += coloured("Nothing can go on", Colour::Red, style) +
            ": these wait for each other: " + joined(cycle, " > ") + '\n';
  } else if (!running.empty()) {
    text += firstSuspect(running.front(), style);
  }
  text +=
      fmt::format("{} running, {} waiting\n", counted(running.size(), "plugin"), waiting.size());
  if (!running.empty()) {
    TextTable table({">holds up", "since", "running"});
    for (const Running& plugin : running) {
      table.add({std::to_string(plugin.blocks), printable(plugin.since),
                 coloured(printable(plugin.name), Colour::Bold, style)});
    }
    text += '\n' + table.text(style);
  }
  if (!waiting.empty()) {
    TextTable table({"waiting", "for"});
    for (const Waiting& plugin : waiting) {
      if (plugin.missing.empty()) table.add({printable(plugin.name), "a worker"});
      for (const Missing& missing : plugin.missing) {
        const bool isFirst = &missing == &plugin.missing.front();
        table.add({isFirst ? printable(plugin.name) : "",
                   printable(missing.milestone) + ", from " + someOf(missing.plugins)});
      }
    }
    text += '\n' + table.text(style);
  }
  return text;
}

}  // namespace

Answer showStuck(const std::vector<KnownPlugin>& known, const BootMessages& messages, Format format,
                 const TextStyle& style) {
  const StuckFinder finder(known, messages);
  const std::vector<Running> running = finder.running();
  const std::vector<Waiting> waiting = finder.waiting();
  std::vector<std::string> cycle;
  if (running.empty() && !waiting.empty()) cycle = finder.cycle();
  Answer answer;
  answer.status = running.empty() && waiting.empty() ? 0 : 1;
  answer.output = format == Format::Json ? asJson(running, waiting, cycle)
                                         : asText(running, waiting, cycle, style);
  if (!messages.tellsSuccess) {
    answer.notes.emplace_back(
        "only the kernel log, or a run with --trace, tells when a plugin that succeeded has ended: "
        "what is said to run may have ended");
  }
  return answer;
}

}  // namespace bootforge::analyze
