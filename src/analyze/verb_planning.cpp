#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cerrno>
#include <limits>
#include <memory>
#include <optional>

#include "analyze/common_options.h"
#include "analyze/output/json_output.h"
#include "analyze/planning/drawing.h"
#include "analyze/planning/plan.h"
#include "analyze/planning/why.h"
#include "analyze/verbs.h"
#include "util/system_error.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

// ---- plan

struct PlanOptions : CommonOptions {
  bool reverse = false;
};

std::string planAsJson(const Plan& plan, const WaitGraph& graph) {
  json::array order;
  for (const Step& step : plan.order) {
    order.emplace_back(json::object{{"name", jsonText(graph.name(step.node))},
                                    {"kind", nameOf(graph.kind(step.node))},
                                    {"class", step.schedulingClass},
                                    {"weight", step.weight},
                                    {"tied", step.tied}});
  }
  return prettyJson(json::object{{"order", std::move(order)},
                                 {"blocked", jsonTexts(namesOf(graph, plan.blocked))}});
}

std::string planAsText(const Plan& plan, const WaitGraph& graph) {
  std::string text;
  if (!plan.blocked.empty()) {
    text += fmt::format("{} wait for ever:", plan.blocked.size());
    for (const std::string& name : namesOf(graph, plan.blocked)) text += ' ' + printable(name);
    text += '\n';
  }
  const std::size_t digits = std::to_string(plan.order.size()).size();
  std::size_t number = 0;
  for (const Step& step : plan.order) {
    text += fmt::format("{:>{}}  {:<9}  {}", ++number, digits, nameOf(graph.kind(step.node)),
                        printable(graph.name(step.node)));
    if (step.tied > 0) {
      text += fmt::format("  (first of {} that are equally good)", step.tied + 1);
    }
    text += '\n';
  }
  return text;
}

/// Says when a boot of the image runs nothing. Throws UsageError when the plugins cannot be read;
/// an image that has no plugins yet can be.
void checkEnumeration(const Image& image) {
  const int error = image.pluginDirectoryError();
  if (error == ENOENT && image.pluginDirectory() == kDefaultPluginDirectory) {
    remark("the image has no plugin folder: a boot would run nothing");
    return;
  }
  if (error != 0) {
    throw UsageError("the plugin folder " + image.pluginDirectory() +
                     " cannot be read: " + systemErrorText(error));
  }
  if (!image.isEnumerated()) {
    remark("the debug configuration has a bad escape: a boot would run nothing");
  }
}

int runPlan(const PlanOptions& options) {
  if (options.reverse && !options.daemons) throw UsageError("--reverse goes with --daemons");
  Image& image = openImage(options);
  const WaitGraph graph(image);
  checkEnumeration(image);
  const Plan plan = planBoot(image, graph, options.reverse);
  writeOutput(options, options.isJson() ? planAsJson(plan, graph) : planAsText(plan, graph));
  return kGood;
}

// ---- why

struct WhyOptions : CommonOptions {
  std::string from;
  std::optional<std::string> to;
};

/// The node of a name. Throws UsageError, with the nearest names, when there is none.
WaitGraph::Index findNode(const WaitGraph& graph, const std::string& name) {
  if (const auto index = graph.find(name)) return *index;
  std::string text = "there is no plugin or milestone \"" + name + "\"";
  const char* separator = "; did you mean ";
  for (const std::string_view nearest : graph.nearest(name)) {
    text += separator + ('"' + std::string(nearest) + '"');
    separator = ", ";
  }
  throw UsageError(text);
}

json::array tiesAsJson(const std::vector<Tie>& ties) {
  json::array list;
  for (const Tie& tie : ties) {
    list.emplace_back(
        json::object{{"milestone", jsonText(tie.milestone)}, {"plugins", jsonTexts(tie.plugins)}});
  }
  return list;
}

std::string reasonsAsJson(const Reasons& reasons) {
  return prettyJson(
      json::object{{"name", jsonText(reasons.name)},
                   {"runs", reasons.runs},
                   {"reason", reasons.runs ? json::value() : json::value(jsonText(reasons.reason))},
                   {"waits_for", tiesAsJson(reasons.waitsFor)},
                   {"waited_for_by", tiesAsJson(reasons.waitedForBy)}});
}

std::string tiesAsText(const char* title, const std::vector<Tie>& ties, const char* nobody) {
  if (ties.empty()) return fmt::format("{} nothing\n", title);
  std::string text = fmt::format("{}\n", title);
  for (const Tie& tie : ties) {
    text += "  " + printable(tie.milestone) + ":";
    for (const std::string& plugin : tie.plugins) text += ' ' + printable(plugin);
    if (tie.plugins.empty()) text += nobody;
    text += '\n';
  }
  return text;
}

std::string reasonsAsText(const Reasons& reasons) {
  const char* const good = reasons.isBarrier ? " is reached" : " runs";
  const char* const bad = reasons.isBarrier ? " is not reached: " : " does not run: ";
  return printable(reasons.name) + (reasons.runs ? good : bad + printable(reasons.reason)) + '\n' +
         tiesAsText("waits for", reasons.waitsFor, " (nobody provides it)") +
         tiesAsText("is waited for by", reasons.waitedForBy, " (nobody requires it)");
}

std::string chainsAsText(const WaitGraph& graph, const Chains& found, const WhyOptions& options) {
  if (found.chains.empty()) {
    return printable(options.from) + " does not wait for " + printable(*options.to) + '\n';
  }
  std::string text;
  for (const WaitGraph::Indices& chain : found.chains) {
    std::string line;
    for (const std::string& name : namesOf(graph, chain)) {
      line += (line.empty() ? "" : " -> ") + printable(name);
    }
    text += line + '\n';
  }
  return text;
}

std::string chainsAsJson(const WaitGraph& graph, const Chains& found) {
  json::array chains;
  for (const WaitGraph::Indices& chain : found.chains) {
    chains.emplace_back(jsonTexts(namesOf(graph, chain)));
  }
  return prettyJson(json::object{{"chains", std::move(chains)}, {"complete", found.areAll}});
}

int runWhy(const WhyOptions& options) {
  const Image& image = openImage(options);
  const WaitGraph graph(image);
  checkEnumeration(image);
  const WaitGraph::Index from = findNode(graph, options.from);
  if (!options.to) {
    const Reasons reasons = reasonsOf(image, graph, from);
    writeOutput(options, options.isJson() ? reasonsAsJson(reasons) : reasonsAsText(reasons));
    return kGood;
  }
  const Chains found = shortestChains(graph, from, findNode(graph, *options.to));
  if (!found.areAll) remark("there are more chains than are listed here");
  writeOutput(options,
              options.isJson() ? chainsAsJson(graph, found) : chainsAsText(graph, found, options));
  return found.chains.empty() ? kBad : kGood;
}

// ---- dot

struct DotOptions : CommonOptions {
  std::optional<std::string> around;
  std::size_t depth = std::numeric_limits<std::size_t>::max();
};

int runDot(const DotOptions& options) {
  const Image& image = openImage(options);
  const WaitGraph graph(image);
  checkEnumeration(image);
  std::optional<Part> part;
  if (options.around) part = Part{findNode(graph, *options.around), options.depth};
  const std::string drawing = drawGraph(image, graph, part);
  writeOutput(options,
              options.isJson() ? prettyJson(json::object{{"dot", jsonText(drawing)}}) : drawing);
  return kGood;
}

}  // namespace

void addPlan(CLI::App& app, int& status) {
  CLI::App* const verb = app.add_subcommand("plan", "in which order one worker would run");
  const auto options = std::make_shared<PlanOptions>();
  addImageOptions(*verb, *options);
  addBootOptions(*verb, *options);
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->add_flag("--reverse", options->reverse, "with --daemons: a stop");
  verb->callback([options, &status] { status = runPlan(*options); });
}

void addWhy(CLI::App& app, int& status) {
  CLI::App* const verb =
      app.add_subcommand("why", "what a plugin waits for, or why it waits for another");
  const auto options = std::make_shared<WhyOptions>();
  verb->add_option("A", options->from, "the plugin")->required();
  verb->add_option("B", options->to, "another plugin: by which chains A waits for it");
  addImageOptions(*verb, *options);
  addBootOptions(*verb, *options);
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->callback([options, &status] { status = runWhy(*options); });
}

void addDot(CLI::App& app, int& status) {
  CLI::App* const verb = app.add_subcommand("dot", "draws the graph for Graphviz");
  const auto options = std::make_shared<DotOptions>();
  addImageOptions(*verb, *options);
  addBootOptions(*verb, *options);
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->add_option("--around", options->around, "only what is near that plugin or milestone")
      ->option_text("NAME");
  verb->add_option("--depth", options->depth, "how near: this many edges")
      ->option_text("N")
      ->transform(isWholeNumber())
      ->needs("--around");
  verb->callback([options, &status] { status = runDot(*options); });
}

}  // namespace bootforge::analyze
