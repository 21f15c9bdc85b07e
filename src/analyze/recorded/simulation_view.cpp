#include "analyze/recorded/simulation_view.h"

#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <cmath>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "analyze/output/json_output.h"
#include "analyze/recorded/boot_summary.h"
#include "analyze/recorded/text_table.h"
#include "reading/nearest.h"
#include "util/exception.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

std::optional<double> quotient(long double dividend, long double divisor) {
  if (divisor <= 0) return std::nullopt;
  return static_cast<double>(dividend / divisor);
}

std::optional<double> speedupOf(const Timeline& timeline, const Simulation& run) {
  return quotient(static_cast<long double>(timeline.makespan), run.makespan);
}

std::optional<double> utilisationOf(const Simulation& run) {
  return quotient(run.busy, run.makespan * static_cast<long double>(run.workers));
}

std::optional<double> executorShareOf(const Simulation& run) {
  return quotient(run.executorBusy, run.makespan);
}

json::value orNull(const std::optional<double>& value) {
  return value ? json::value(*value) : json::value();
}

std::string asJson(const Timeline& timeline, const std::vector<Simulation>& runs,
                   const std::optional<double>& modelError) {
  json::array rows;
  for (const Simulation& run : runs) {
    json::array order;
    for (const SimulatedRun& plugin : run.runs) order.emplace_back(jsonText(plugin.name));
    rows.emplace_back(json::object{{"workers", run.workers},
                                   {"makespan", wholeMicroseconds(run.makespan)},
                                   {"speedup", orNull(speedupOf(timeline, run))},
                                   {"utilisation", orNull(utilisationOf(run))},
                                   {"executor", orNull(executorShareOf(run))},
                                   {"order", std::move(order)}});
  }
  return prettyJson(json::object{
      {"recorded", json::object{{"makespan", timeline.makespan}, {"workers", timeline.workers}}},
      {"runs", std::move(rows)},
      {"model_error", orNull(modelError)}});
}

std::string percentText(const std::optional<double>& share) {
  return share ? fmt::format("{:.0f} %", 100 * *share) : "-";
}

std::string asText(const Timeline& timeline, const std::vector<Simulation>& runs,
                   const std::optional<double>& modelError, const TextStyle& style) {
  std::string text = bootSummary(timeline, style);
  if (modelError) {
    const std::string off = fmt::format("{:.1f}", 100 * std::abs(*modelError));
    text += off == "0.0" ? "The model agrees with the recorded boot\n"
                         : fmt::format("The model is {} % {} on the recorded boot\n", off,
                                       std::signbit(*modelError) ? "too fast" : "too slow");
  }
  TextTable table({">workers", ">boot", ">times as fast", ">workers busy", ">executor busy"});
  for (const Simulation& run : runs) {
    const std::optional<double> speedup = speedupOf(timeline, run);
    table.add({std::to_string(run.workers), duration(wholeMicroseconds(run.makespan)),
               speedup ? fmt::format("{:.2f}", *speedup) : "-", percentText(utilisationOf(run)),
               percentText(executorShareOf(run))});
  }
  return text + '\n' + table.text(style);
}

void checkName(const std::string& name, const std::unordered_set<std::string_view>& names) {
  if (names.contains(name)) return;
  std::string text = printable(name) + ": no such plugin";
  const char* separator = "; did you mean ";
  for (const std::string_view near : nearestNames(name, {names.begin(), names.end()})) {
    text += std::exchange(separator, " or ") + printable(near);
  }
  if (std::string_view(separator) == " or ") text += '?';
  throw Exception(text);
}

}  // namespace

Answer showSimulations(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                       const Changes& changes, const std::vector<std::size_t>& workers,
                       Format format, const TextStyle& style) {
  std::unordered_set<std::string_view> names;
  for (const TimedPlugin& plugin : timeline.plugins) names.insert(plugin.name);
  for (const KnownPlugin& plugin : known) names.insert(plugin.name);
  for (const auto& [name, work] : changes.work) checkName(name, names);
  for (const std::string& name : changes.without) checkName(name, names);

  std::vector<Simulation> runs;
  for (const std::size_t count : workers) {
    runs.push_back(simulate(timeline, known, changes, count));
  }
  std::optional<double> modelError;
  if (timeline.workers > 0) {
    const Simulation same = simulate(timeline, known, {}, timeline.workers);
    modelError = quotient(same.makespan - static_cast<long double>(timeline.makespan),
                          static_cast<long double>(timeline.makespan));
  }
  Answer answer;
  answer.output = format == Format::Json ? asJson(timeline, runs, modelError)
                                         : asText(timeline, runs, modelError, style);
  return answer;
}

}  // namespace bootforge::analyze
