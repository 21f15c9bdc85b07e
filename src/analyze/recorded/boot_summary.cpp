#include "analyze/recorded/boot_summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "analyze/recorded/text_table.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

std::size_t countOf(const Timeline& timeline, TimedPlugin::Result result) {
  return static_cast<std::size_t>(
      std::count_if(timeline.plugins.begin(), timeline.plugins.end(),
                    [result](const TimedPlugin& plugin) { return plugin.result == result; }));
}

/// The reason without the plugin's own name and the method, which the kernel's log has in front.
std::string_view shortReason(const TimedPlugin& plugin) {
  std::string_view reason = plugin.reason;
  constexpr std::string_view kFailed = "() failed: ";
  const std::size_t end = reason.find(kFailed);
  if (reason.starts_with(plugin.name + "->") && end != std::string_view::npos) {
    reason.remove_prefix(end + kFailed.size());
  }
  return reason;
}

}  // namespace

std::string bootSummary(const Timeline& timeline, const TextStyle& style) {
  const bool isBoot = timeline.kind == ProfileSection::Kind::Boot;
  const char* const noun = isBoot ? "plugin" : "script";
  std::string text;
  if (timeline.workers == 0) {
    text = fmt::format("{}: nothing ran", isBoot ? "Boot" : "Daemon run");
  } else {
    text = fmt::format("{} of {}: {} on {}", isBoot ? "Boot" : "Daemon run",
                       calendarTime(timeline.start),
                       coloured(duration(timeline.makespan), Colour::Bold, style),
                       counted(timeline.workers, "worker"));
  }
  if (timeline.kernelMicroseconds) {
    text += fmt::format(", after {} of kernel", duration(*timeline.kernelMicroseconds));
  }
  text += '\n';
  for (const TimedPlugin& plugin : timeline.plugins) {
    if (plugin.result != TimedPlugin::Result::Failed) continue;
    text += coloured("failed", Colour::Red, style) + ' ' + printable(plugin.name) + ": " +
            printable(shortReason(plugin)) + '\n';
  }
  const std::size_t skipped = countOf(timeline, TimedPlugin::Result::Skipped);
  const std::size_t never = countOf(timeline, TimedPlugin::Result::Never);
  if (skipped > 0) text += counted(skipped, noun) + " skipped by the operator\n";
  if (never > 0) text += counted(never, noun) + " never ran\n";
  return text;
}

std::string timeBar(const Timeline& timeline, const TimedPlugin& plugin, std::size_t columns) {
  if (!plugin.ran || timeline.makespan == 0) return {};
  const auto column = [&](std::int64_t moment) {
    return static_cast<std::size_t>(static_cast<double>(moment) /
                                    static_cast<double>(timeline.makespan) *
                                    static_cast<double>(columns));
  };
  const std::size_t start = std::min(column(plugin.start), columns - 1);
  const std::size_t end = std::clamp(column(plugin.end), start + 1, columns);
  const std::size_t ready = std::min(column(plugin.start - plugin.waitWorker), start);
  std::string bar(ready, ' ');
  for (std::size_t index = ready; index < start; ++index) bar += "░";
  for (std::size_t index = start; index < end; ++index) bar += "█";
  return bar;
}

std::string resultForPeople(const TimedPlugin& plugin, const TextStyle& style) {
  switch (plugin.result) {
    case TimedPlugin::Result::Failed:
      return coloured("failed", Colour::Red, style);
    case TimedPlugin::Result::Skipped:
      return coloured("skipped", Colour::Yellow, style);
    case TimedPlugin::Result::Never:
      return coloured("never ran", Colour::Faint, style);
    case TimedPlugin::Result::Activated:
    case TimedPlugin::Result::Unknown:
      break;
  }
  return {};
}

}  // namespace bootforge::analyze
