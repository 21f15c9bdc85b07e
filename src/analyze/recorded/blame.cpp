#include "analyze/recorded/blame.h"

#include <algorithm>
#include <boost/json/array.hpp>
#include <utility>

#include "analyze/output/json_output.h"
#include "analyze/recorded/boot_summary.h"
#include "analyze/recorded/rows.h"
#include "analyze/recorded/text_table.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

/// What the order looks at; the least comes first.
std::int64_t keyOf(const TimedPlugin& plugin, BlameOrder order) {
  switch (order) {
    case BlameOrder::Run:
      return -plugin.run;
    case BlameOrder::Wait:
      return -(plugin.waitMilestones + plugin.waitWorker);
    case BlameOrder::Slack:
      return plugin.slack;
    case BlameOrder::Start:
      break;
  }
  return plugin.start;
}

std::vector<const TimedPlugin*> sorted(const Timeline& timeline, BlameOrder order) {
  std::vector<const TimedPlugin*> plugins;
  for (const TimedPlugin& plugin : timeline.plugins) plugins.push_back(&plugin);
  std::stable_sort(plugins.begin(), plugins.end(), [order](const auto* one, const auto* other) {
    if (one->ran != other->ran) return one->ran;
    if (!one->ran) return false;
    const auto keys = std::pair(keyOf(*one, order), keyOf(*other, order));
    return keys.first != keys.second ? keys.first < keys.second : one->name < other->name;
  });
  return plugins;
}

std::string asText(const Timeline& timeline, const std::vector<const TimedPlugin*>& plugins,
                   const TextStyle& style) {
  const std::size_t nameWidth = std::max<std::size_t>(24, style.width / 3);
  TextTable table({">start", ">waited", ">for worker", ">run", ">executor", ">slack", ">worker",
                   "name", "", "timeline"});
  const auto addRows = [&](TextTable& target, std::size_t barWidth) {
    for (const TimedPlugin* const plugin : plugins) {
      std::vector<std::string> cells(7);
      if (plugin->ran) {
        cells = {duration(plugin->start),        duration(plugin->waitMilestones),
                 duration(plugin->waitWorker),   duration(plugin->run),
                 duration(plugin->waitExecutor), duration(plugin->slack),
                 std::to_string(plugin->worker)};
      }
      cells.push_back(fitted(plugin->name, nameWidth));
      cells.push_back(resultForPeople(*plugin, style));
      if (barWidth > 0) cells.push_back(timeBar(timeline, *plugin, barWidth));
      target.add(std::move(cells));
    }
  };
  TextTable measure = table;
  addRows(measure, 1);
  constexpr std::size_t kLeastBar = 10;
  constexpr std::size_t kMostBar = 60;
  const std::size_t used = measure.widthBeforeLast();
  if (used + kLeastBar > style.width) {
    table = TextTable(
        {">start", ">waited", ">for worker", ">run", ">executor", ">slack", ">worker", "name", ""});
    addRows(table, 0);
  } else {
    addRows(table, std::min(style.width - used, kMostBar));
  }
  return bootSummary(timeline, style) + '\n' + table.text(style);
}

}  // namespace

Answer blame(const Timeline& timeline, BlameOrder order, Format format, const TextStyle& style) {
  Answer answer;
  const std::vector<const TimedPlugin*> plugins = sorted(timeline, order);
  if (format == Format::Text) {
    answer.output = asText(timeline, plugins, style);
    return answer;
  }
  json::array rows;
  for (const TimedPlugin* const plugin : plugins) rows.emplace_back(rowOf(*plugin));
  json::object boot{
      {"start", timeline.workers > 0 ? json::value(timeline.start) : json::value()},
      {"makespan", timeline.makespan},
      {"workers", timeline.workers},
      {"kernel_us",
       timeline.kernelMicroseconds ? json::value(*timeline.kernelMicroseconds) : json::value()}};
  answer.output = prettyJson(json::object{{"boot", std::move(boot)}, {"plugins", std::move(rows)}});
  return answer;
}

}  // namespace bootforge::analyze
