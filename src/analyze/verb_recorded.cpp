// The verbs about one recorded boot.

#include <map>
#include <memory>

#include "analyze/boot_input.h"
#include "analyze/recorded/blame.h"
#include "analyze/recorded/chain_view.h"
#include "analyze/recorded/export_rows.h"
#include "analyze/recorded/plot.h"
#include "analyze/recorded/simulation_view.h"
#include "analyze/recorded/stuck.h"
#include "analyze/report/report.h"
#include "analyze/verbs.h"

namespace bootforge::analyze {
namespace {

// ---- blame

struct BlameOptions : BootOptions {
  std::string order = "start";
};

int runBlame(const BlameOptions& options) {
  static const std::map<std::string, BlameOrder> kOrders = {{"start", BlameOrder::Start},
                                                            {"run", BlameOrder::Run},
                                                            {"wait", BlameOrder::Wait},
                                                            {"slack", BlameOrder::Slack}};
  const RecordedBoot boot = readBoot(options);
  return tell(options, blame(boot.timeline, kOrders.at(options.order), options.dataFormat(),
                             options.style()));
}

// ---- critical-chain

struct ChainOptions : BootOptions {
  std::optional<std::string> name;
};

int runCriticalChain(const ChainOptions& options) {
  const RecordedBoot boot = readBoot(options);
  return tell(options, showCriticalChain(boot.timeline, options.name, options.dataFormat(),
                                         options.style()));
}

// ---- stuck

int runStuck(const BootOptions& options) {
  const std::vector<KnownPlugin> known = readKnownPlugins(options);
  KnownNames names;
  for (const KnownPlugin& plugin : known) names.add(plugin.name);
  const BootMessages messages = readCapture(options.messages, names, WhichRun::Last);
  return tell(options, showStuck(known, messages, options.dataFormat(), options.style()));
}

// ---- plot

int runPlot(const BootOptions& options) { return tell(options, plot(readBoot(options).timeline)); }

// ---- report

int runReport(const BootOptions& options) {
  const RecordedBoot boot = readBoot(options);
  return tell(options,
              report(boot.timeline, boot.known, boot.messages ? &*boot.messages : nullptr));
}

// ---- export

int runExport(const BootOptions& options) {
  static const std::map<std::string, std::string (*)(const Timeline&)> kFormats = {
      {"trace", asTraceEvents},
      {"otlp", asOtlp},
      {"prometheus", asPrometheus},
      {"csv", asCsv},
      {"jsonl", asJsonLines}};
  writeOutput(options, kFormats.at(options.format)(readBoot(options).timeline));
  return kGood;
}

// ---- simulate

struct SimulateOptions : BootOptions {
  std::vector<std::size_t> workers;
  std::vector<std::string> set;
  std::vector<std::string> without;
};

/// "NAME=US". Names may hold the sign as well.
std::pair<std::string, std::int64_t> readChange(const std::string& text) {
  const std::size_t sign = text.rfind('=');
  std::optional<std::int64_t> microseconds;
  if (sign != std::string::npos && sign > 0) microseconds = wholeNumber(text.substr(sign + 1));
  if (!microseconds) {
    throw UsageError("--set " + text + ": not of the form NAME=MICROSECONDS");
  }
  return {text.substr(0, sign), *microseconds};
}

int runSimulate(const SimulateOptions& options) {
  Changes changes;
  for (const std::string& change : options.set) changes.work.push_back(readChange(change));
  changes.without = options.without;
  const RecordedBoot boot = readBoot(options);
  return tell(options, showSimulations(boot.timeline, boot.known, changes, options.workers,
                                       options.dataFormat(), options.style()));
}

/// A verb with the options of a recorded boot, which are kept as long as its callback.
template <typename Options>
std::pair<CLI::App*, std::shared_ptr<Options>> addVerb(CLI::App& app, const char* name,
                                                       const char* summary) {
  CLI::App* const verb = app.add_subcommand(name, summary);
  auto options = std::make_shared<Options>();
  addRecordedBootOptions(*verb, *options);
  return {verb, std::move(options)};
}

}  // namespace

void addBlame(CLI::App& app, int& status) {
  const auto [verb, options] =
      addVerb<BlameOptions>(app, "blame", "what took how long in a recorded boot");
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->add_option("--sort", options->order, "which come first: default start")
      ->option_text("run|wait|slack|start")
      ->check(CLI::IsMember({"run", "wait", "slack", "start"}));
  verb->callback([options = options, &status] { status = runBlame(*options); });
}

void addCriticalChain(CLI::App& app, int& status) {
  const auto [verb, options] =
      addVerb<ChainOptions>(app, "critical-chain", "what kept a recorded boot from ending sooner");
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->add_option("NAME", options->name, "the chain to that plugin, not to the last one");
  verb->callback([options = options, &status] { status = runCriticalChain(*options); });
}

void addStuck(CLI::App& app, int& status) {
  CLI::App* const verb = app.add_subcommand("stuck", "what a boot that hangs is waiting for");
  const auto options = std::make_shared<BootOptions>();
  addImageOptions(*verb, *options);
  verb->add_option("--messages", options->messages,
                   "a capture of the boot's messages (-: standard input)")
      ->option_text("FILE")
      ->check(isFileName())
      ->required()
      ->group("Boot");
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->callback([options, &status] { status = runStuck(*options); });
}

void addPlot(CLI::App& app, int& status) {
  const auto [verb, options] =
      addVerb<BootOptions>(app, "plot", "a recorded boot as a picture (SVG)");
  addOutputOptions(*verb, *options, {"svg"});
  verb->callback([options = options, &status] { status = runPlot(*options); });
}

void addReport(CLI::App& app, int& status) {
  const auto [verb, options] = addVerb<BootOptions>(
      app, "report", "a recorded boot as a page for a browser (one HTML file)");
  addOutputOptions(*verb, *options, {"html"});
  verb->callback([options = options, &status] { status = runReport(*options); });
}

void addExport(CLI::App& app, int& status) {
  const auto [verb, options] =
      addVerb<BootOptions>(app, "export", "a recorded boot for other programs");
  const std::vector<std::string> formats = {"trace", "otlp", "prometheus", "csv", "jsonl"};
  verb->add_option("--format", options->format, "there is no default")
      ->option_text("trace|otlp|prometheus|csv|jsonl")
      ->check(CLI::IsMember(formats))
      ->required()
      ->group("Output");
  verb->add_option("--output", options->output, "in place of standard output")
      ->option_text("FILE")
      ->check(isFileName())
      ->group("Output");
  verb->callback([options = options, &status] { status = runExport(*options); });
}

void addSimulate(CLI::App& app, int& status) {
  const auto [verb, options] = addVerb<SimulateOptions>(
      app, "simulate", "how long a recorded boot would take with other workers");
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->add_option("--workers", options->workers, "numbers of workers")
      ->option_text("N,...")
      ->delimiter(',')
      ->transform(isWholeNumber())
      ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}))
      ->allow_extra_args(false)
      ->required();
  verb->add_option("--set", options->set, "what a plugin would take, in microseconds")
      ->option_text("NAME=US")
      ->allow_extra_args(false);
  verb->add_option("--without", options->without, "leaves a plugin out, as the deny list does")
      ->option_text("NAME")
      ->allow_extra_args(false);
  verb->callback([options = options, &status] { status = runSimulate(*options); });
}

}  // namespace bootforge::analyze
