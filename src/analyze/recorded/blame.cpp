#include "analyze/recorded/blame.h"

#include <algorithm>
#include <boost/json/array.hpp>
#include <span>
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

/// A column of times: its heading, and what it tells of a plugin that ran.
struct Column {
  const char* heading;
  std::string (*cell)(const TimedPlugin& plugin);
};

constexpr Column kAllColumns[] = {
    {">start", [](const TimedPlugin& plugin) { return duration(plugin.start); }},
    {">waited", [](const TimedPlugin& plugin) { return duration(plugin.waitMilestones); }},
    {">for worker", [](const TimedPlugin& plugin) { return duration(plugin.waitWorker); }},
    {">run", [](const TimedPlugin& plugin) { return duration(plugin.run); }},
    {">executor", [](const TimedPlugin& plugin) { return duration(plugin.waitExecutor); }},
    {">slack", [](const TimedPlugin& plugin) { return duration(plugin.slack); }},
    {">worker", [](const TimedPlugin& plugin) { return std::to_string(plugin.worker); }},
};
// For terminals on which no bar would find room beside the others.
constexpr Column kFewColumns[] = {kAllColumns[0], kAllColumns[2], kAllColumns[3], kAllColumns[5]};
constexpr Column kFewestColumns[] = {kAllColumns[0], kAllColumns[3]};

TextTable tableOf(const Timeline& timeline, const std::vector<const TimedPlugin*>& plugins,
                  std::span<const Column> columns, std::size_t barWidth, const TextStyle& style) {
  std::vector<std::string> headings;
  for (const Column& column : columns) headings.emplace_back(column.heading);
  headings.insert(headings.end(), {"name", "", "timeline"});
  TextTable table(headings);
  const std::size_t nameWidth = std::max<std::size_t>(20, style.width / 4);
  for (const TimedPlugin* const plugin : plugins) {
    std::vector<std::string> cells;
    for (const Column& column : columns) {
      cells.push_back(plugin->ran ? column.cell(*plugin) : std::string());
    }
    cells.push_back(fitted(plugin->name, nameWidth));
    cells.push_back(resultForPeople(*plugin, style));
    cells.push_back(timeBar(timeline, *plugin, barWidth));
    table.add(std::move(cells));
  }
  return table;
}

std::string asText(const Timeline& timeline, const std::vector<const TimedPlugin*>& plugins,
                   const TextStyle& style) {
  constexpr std::size_t kLeastBar = 12;
  constexpr std::size_t kMostBar = 60;
  std::span<const Column> columns = kAllColumns;
  const auto used = [&] {
    return tableOf(timeline, plugins, columns, kLeastBar, style).widthBeforeLast();
  };
  for (const std::span<const Column> fewer :
       {std::span<const Column>(kFewColumns), std::span<const Column>(kFewestColumns)}) {
    if (used() + kLeastBar > style.width) columns = fewer;
  }
  const std::size_t room = std::max(style.width, used() + kLeastBar) - used();
  const TextTable table = tableOf(timeline, plugins, columns, std::min(room, kMostBar), style);
  return bootSummary(timeline, style) + '\n' + table.text(style);
}

}  // namespace

std::vector<const TimedPlugin*> inOrder(const Timeline& timeline, BlameOrder order) {
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

Answer blame(const Timeline& timeline, BlameOrder order, Format format, const TextStyle& style) {
  Answer answer;
  const std::vector<const TimedPlugin*> plugins = inOrder(timeline, order);
  if (format == Format::Text) {
    answer.output = asText(timeline, plugins, style);
    return answer;
  }
  json::array rows;
  for (const TimedPlugin* const plugin : plugins) rows.emplace_back(rowOf(*plugin));
  answer.output = prettyJson(json::object{{"boot", rowOf(timeline)}, {"plugins", std::move(rows)}});
  return answer;
}

}  // namespace bootforge::analyze
