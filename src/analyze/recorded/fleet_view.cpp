#include "analyze/recorded/fleet_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/array.hpp>
#include <utility>

#include "analyze/output/json_output.h"
#include "analyze/recorded/boot_sample.h"
#include "analyze/recorded/text_table.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

void addDistribution(json::object& object, const Distribution& distribution) {
  const auto amount = [&](std::int64_t value) {
    return distribution.count > 0 ? json::value(value) : json::value();
  };
  object["count"] = distribution.count;
  object["p50"] = amount(distribution.p50);
  object["p90"] = amount(distribution.p90);
  object["p99"] = amount(distribution.p99);
  object["most"] = amount(distribution.most);
}

json::value scoreOf(const HostBoots& host) {
  return host.score < 0 ? json::value() : json::value(host.score);
}

/// The hosts that stand out, those of an unlimited score first.
std::vector<const HostBoots*> outliersIn(const FleetView& view) {
  std::vector<const HostBoots*> outliers;
  for (const HostBoots& host : view.hosts) {
    if (host.isOutlier) outliers.push_back(&host);
  }
  std::stable_sort(outliers.begin(), outliers.end(), [](const auto* one, const auto* other) {
    const bool unlimited = one->score < 0;
    return unlimited != (other->score < 0) ? unlimited : one->score > other->score;
  });
  return outliers;
}

std::string scoreText(const HostBoots& host) {
  return host.score < 0 ? "-" : fmt::format("{:.1f}", host.score);
}

}  // namespace

std::string fleetJson(const FleetView& view, bool byHost) {
  json::object boot;
  addDistribution(boot, view.boot);
  json::array plugins;
  for (const FleetView::Plugin& plugin : view.plugins) {
    json::object row{{"name", jsonText(plugin.name)}};
    addDistribution(row, plugin.runs);
    row["failures"] = plugin.failures ? json::value(*plugin.failures) : json::value();
    plugins.emplace_back(std::move(row));
  }
  json::array outliers;
  for (const HostBoots* const host : outliersIn(view)) {
    outliers.emplace_back(json::object{{"host", jsonText(host->host)},
                                       {"value", halved(host->doubledMedian)},
                                       {"score", scoreOf(*host)}});
  }
  json::object result{{"boots", view.boots},           {"unreadable", view.unreadable},
                      {"damaged", view.damaged},       {"boot", std::move(boot)},
                      {"plugins", std::move(plugins)}, {"outliers", std::move(outliers)}};
  if (byHost) {
    json::array hosts;
    for (const HostBoots& host : view.hosts) {
      json::object row{{"host", jsonText(host.host)}, {"value", halved(host.doubledMedian)}};
      addDistribution(row, host.makespans);
      row["score"] = scoreOf(host);
      hosts.emplace_back(std::move(row));
    }
    result["hosts"] = std::move(hosts);
  }
  return prettyJson(result);
}

std::string fleetText(const FleetView& view, bool byHost, const TextStyle& style) {
  std::string text =
      fmt::format("{} of {}", counted(view.boots, "boot"), counted(view.hosts.size(), "host"));
  if (view.boot.count > 0) {
    text += fmt::format(": half within {}, 90 % within {}, 99 % within {}, the slowest {}",
                        coloured(duration(view.boot.p50), Colour::Bold, style),
                        duration(view.boot.p90), duration(view.boot.p99), duration(view.boot.most));
  }
  text += '\n';
  if (view.damaged > 0) {
    text += fmt::format("{} damaged, and read as far as possible\n", counted(view.damaged, "log"));
  }
  if (view.unreadable > 0) {
    text += fmt::format("{} cannot be read\n", counted(view.unreadable, "file"));
  }
  const std::vector<const HostBoots*> outliers = outliersIn(view);
  if (!outliers.empty()) {
    text += fmt::format("\n{} out:\n", outliers.size() == 1
                                           ? "1 host stands"
                                           : counted(outliers.size(), "host") + " stand");
    TextTable table({">boot", ">score", "host"});
    for (const HostBoots* const host : outliers) {
      table.add({duration(halved(host->doubledMedian)), scoreText(*host),
                 coloured(printable(host->host), Colour::Red, style)});
    }
    text += table.text(style);
  }
  if (byHost) {
    TextTable table({">boots", ">median", ">slowest", ">score", "host"});
    for (const HostBoots& host : view.hosts) {
      table.add({std::to_string(host.makespans.count), duration(halved(host.doubledMedian)),
                 duration(host.makespans.most), scoreText(host), printable(host.host)});
    }
    text += '\n' + table.text(style);
  }
  TextTable table({">boots", ">50 %", ">90 %", ">99 %", ">slowest", ">failed", "plugin"});
  for (const FleetView::Plugin& plugin : view.plugins) {
    std::vector<std::string> cells(4);
    if (plugin.runs.count > 0) {
      cells = {duration(plugin.runs.p50), duration(plugin.runs.p90), duration(plugin.runs.p99),
               duration(plugin.runs.most)};
    }
    cells.insert(cells.begin(), std::to_string(plugin.runs.count));
    cells.push_back(plugin.failures ? std::to_string(*plugin.failures) : "");
    cells.push_back(fitted(plugin.name, style.width));
    table.add(std::move(cells));
  }
  return text + '\n' + table.text(style);
}

}  // namespace bootforge::analyze
