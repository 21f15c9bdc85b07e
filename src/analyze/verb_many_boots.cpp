// The verbs about many recorded boots.

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <string_view>

#include "analyze/boot_input.h"
#include "analyze/recorded/comparison.h"
#include "analyze/recorded/fleet.h"
#include "analyze/verbs.h"
#include "reading/number.h"

namespace bootforge::analyze {
namespace {

/// Scripts that give every verb the same root need no exception for these.
void addRootOption(CLI::App& verb, CommonOptions& options) {
  verb.add_option("--root", options.root,
                  "taken as by every verb, and changes nothing: the logs are the caller's files")
      ->option_text("DIR");
}

// ---- diff and gate

// Stands for "--" between the sides, which the parser would swallow. No file has this name.
const std::string kBetween("\0--", 3);

struct CompareOptions : BootOptions {
  bool isGate = false;
  std::vector<std::string> files;
  std::string limits;
};

/// A finite number without a sign.
std::optional<double> percentage(std::string_view text) {
  const auto number = numberIn<double>(text);
  if (!number || !std::isfinite(*number) || std::signbit(*number)) return std::nullopt;
  return number;
}

template <typename Number>
Number limitOf(const std::string& text, const std::optional<Number>& limit) {
  if (!limit) throw UsageError("--max-regression: " + text + " is no limit");
  return *limit;
}

/// "PERCENT[,US]".
Limits readLimits(const std::string& text) {
  const std::size_t comma = text.find(',');
  Limits limits;
  limits.percent = limitOf(text, percentage(text.substr(0, comma)));
  if (comma != std::string::npos) {
    limits.microseconds = limitOf(text, wholeNumber(text.substr(comma + 1)));
  }
  return limits;
}

int runCompare(const CompareOptions& options) {
  const auto between = std::find(options.files.begin(), options.files.end(), kBetween);
  if (between == options.files.begin() || between == options.files.end() ||
      std::next(between) == options.files.end() ||
      std::find(std::next(between), options.files.end(), kBetween) != options.files.end()) {
    throw UsageError("two lists of logs are wanted, with -- between them: OLD... -- NEW...");
  }
  const Limits limits = options.isGate ? readLimits(options.limits) : Limits();
  Side before;
  Side after;
  for (auto file = options.files.begin(); file != options.files.end(); ++file) {
    if (file == between) continue;
    (file < between ? before : after).add(readCallersLog(*file, options));
  }
  return tell(options, compare(before, after, limits, options.isGate, options.dataFormat(),
                               options.style()));
}

void addComparison(CLI::App& app, int& status, bool isGate) {
  CLI::App* const verb =
      isGate ? app.add_subcommand("gate", "fails when boots have become slower")
             : app.add_subcommand("diff", "what is different between boots of before and after");
  const auto options = std::make_shared<CompareOptions>();
  options->isGate = isGate;
  verb->add_option("LOG", options->files, "logs of before, --, logs of after")
      ->option_text("OLD... -- NEW...")
      ->required();
  if (isGate) {
    verb->add_option("--max-regression", options->limits,
                     "what may be slower: up to so many percent, or so many microseconds")
        ->option_text("PERCENT[,US]")
        ->required();
  }
  verb->add_flag("--daemons", options->daemons, "the last daemon run of each log");
  addSectionOption(*verb, *options);
  addRootOption(*verb, *options);
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->callback([options, &status] { status = runCompare(*options); });
}

// ---- fleet

struct FleetOptions : BootOptions {
  std::vector<std::string> paths;
  std::string by;
};

int runFleet(const FleetOptions& options) {
  Fleet fleet(options.section, options.daemons);
  bool allThere = true;
  for (const std::string& path : options.paths) allThere = fleet.add(path) && allThere;
  const Answer answer = fleet.answer(options.by == "host", options.dataFormat(), options.style());
  const int status = tell(options, answer);
  if (!allThere && fleet.isEmpty()) throw UsageError("there is nothing to read");
  return status;
}

}  // namespace

std::vector<std::string> markSides(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  const auto verb = std::find_if(words.begin(), words.end(),
                                 [](const std::string& word) { return !word.starts_with('-'); });
  if (verb != words.end() && (*verb == "diff" || *verb == "gate")) {
    std::replace(verb, words.end(), std::string("--"), kBetween);
  }
  return words;
}

void addDiff(CLI::App& app, int& status) { addComparison(app, status, false); }

void addGate(CLI::App& app, int& status) { addComparison(app, status, true); }

void addFleet(CLI::App& app, int& status) {
  CLI::App* const verb = app.add_subcommand("fleet", "the boots of many hosts in a few numbers");
  const auto options = std::make_shared<FleetOptions>();
  verb->add_option("DIR|FILE", options->paths, "folders with logs, or logs")->required();
  verb->add_option("--by", options->by, "a row for each host, too")
      ->option_text("host")
      ->check(CLI::IsMember({"host"}));
  verb->add_flag("--daemons", options->daemons, "the last daemon run of each log");
  addSectionOption(*verb, *options);
  addRootOption(*verb, *options);
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->callback([options, &status] { status = runFleet(*options); });
}

}  // namespace bootforge::analyze
