#include "analyze/recorded/chain_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/array.hpp>
#include <utility>
#include <vector>

#include "analyze/output/json_output.h"
#include "analyze/recorded/boot_summary.h"
#include "analyze/recorded/critical_chain.h"
#include "analyze/recorded/text_table.h"
#include "reading/nearest.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

json::value afterOf(const Timeline& timeline, const ChainLink& link) {
  if (link.after == ChainLink::After::Start) return nullptr;
  const bool isWorker = link.after == ChainLink::After::Worker;
  return json::object{
      {"kind", isWorker ? "worker" : "milestone"},
      {"name", jsonText(timeline.plugins[link.waitedFor].name)},
      {"milestone", isWorker ? json::value() : json::value(jsonText(link.milestone))}};
}

std::string asJson(const Timeline& timeline, const std::vector<ChainLink>& chain) {
  json::array links;
  for (const ChainLink& link : chain) links.emplace_back(rowOf(timeline, link));
  return prettyJson(json::object{{"chain", std::move(links)}});
}

/// Whether the plugin before it on its worker still ran when it was ready. Otherwise the worker was
/// free, and what it waited for is little more than the time that a choice takes.
bool wasHeld(const Timeline& timeline, const ChainLink& link) {
  return link.gap < timeline.plugins[link.plugin].waitWorker;
}

std::string asText(const Timeline& timeline, const std::vector<ChainLink>& chain,
                   const TextStyle& style) {
  std::string text = bootSummary(timeline, style);
  if (chain.empty()) return text;
  std::int64_t running = 0;
  std::size_t heldUp = 0;
  for (const ChainLink& link : chain) {
    running += timeline.plugins[link.plugin].run;
    heldUp += link.after == ChainLink::After::Worker && wasHeld(timeline, link) ? 1 : 0;
  }
  const TimedPlugin& last = timeline.plugins[chain.back().plugin];
  if (chain.size() == 1) {
    text += fmt::format("{} ended at {}, and had to wait for no other\n\n", printable(last.name),
                        duration(last.end));
  } else {
    text += fmt::format("{} ended at {}: {} steps that followed one another took {}\n",
                        printable(last.name), duration(last.end), chain.size(), duration(running));
    text += heldUp == 0 ? "None of them waited for a worker\n\n"
                        : fmt::format("{} of them waited for a worker\n\n", heldUp);
  }
  TextTable table({">start", ">gap", ">run", "name", "because it waited for"});
  for (const ChainLink& link : chain) {
    const TimedPlugin& plugin = timeline.plugins[link.plugin];
    std::string reason = "the start of the boot";
    if (link.after == ChainLink::After::Worker) {
      const std::string holder = printable(timeline.plugins[link.waitedFor].name);
      reason = wasHeld(timeline, link)
                   ? fmt::format("worker {}, held by {}", plugin.worker, holder)
                   : fmt::format("worker {} for {}, free since {}", plugin.worker,
                                 duration(plugin.waitWorker), holder);
    } else if (link.after == ChainLink::After::Milestone) {
      reason = fmt::format("{}, from {}", printable(link.milestone),
                           printable(timeline.plugins[link.waitedFor].name));
    }
    table.add({duration(plugin.start), duration(link.gap), duration(plugin.run),
               coloured(printable(plugin.name), Colour::Bold, style), reason});
  }
  return text + table.text(style);
}

}  // namespace

json::object rowOf(const Timeline& timeline, const ChainLink& link) {
  const TimedPlugin& plugin = timeline.plugins[link.plugin];
  return {{"name", jsonText(plugin.name)},
          {"start", plugin.start},
          {"run", plugin.run},
          {"gap", link.gap},
          {"after", afterOf(timeline, link)}};
}

Answer showCriticalChain(const Timeline& timeline, const std::optional<std::string>& name,
                         Format format, const TextStyle& style) {
  Answer answer;
  std::vector<ChainLink> chain;
  if (!name) {
    chain = criticalChain(timeline);
  } else {
    // Of several of one name, the one that ended last.
    std::optional<std::size_t> chosen;
    std::vector<std::string_view> names;
    bool listed = false;
    for (std::size_t index = 0; index < timeline.plugins.size(); ++index) {
      const TimedPlugin& plugin = timeline.plugins[index];
      names.emplace_back(plugin.name);
      listed = listed || plugin.name == *name;
      if (plugin.name != *name || !plugin.ran) continue;
      if (!chosen || endedLater(plugin, timeline.plugins[*chosen])) chosen = index;
    }
    if (chosen) {
      chain = criticalChain(timeline, chosen);
    } else {
      answer.status = 1;
      std::string note = printable(*name) + (listed ? " did not run" : " is not in the log");
      const std::vector<std::string_view> nearest =
          listed ? std::vector<std::string_view>() : nearestNames(*name, names);
      for (const std::string_view& near : nearest) {
        note += (&near == &nearest.front() ? "; did you mean " : " or ") + printable(near);
      }
      if (!nearest.empty()) note += '?';
      answer.notes.push_back(std::move(note));
    }
  }
  if (format == Format::Json) {
    answer.output = asJson(timeline, chain);
  } else if (answer.status == 0) {
    answer.output = asText(timeline, chain, style);
  }
  return answer;
}

}  // namespace bootforge::analyze
