#include "analyze/recorded/comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/array.hpp>
#include <cmath>
#include <utility>

#include "analyze/output/json_output.h"
#include "analyze/recorded/boot_sample.h"
#include "analyze/recorded/rank_test.h"
#include "analyze/recorded/text_table.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

constexpr std::size_t kEnoughBoots = 5;
constexpr double kSignificant = 0.05;

/// One duration on both sides. Medians are doubled, so that they are exact.
struct Change {
  std::string name;
  std::optional<std::int64_t> before;
  std::optional<std::int64_t> after;
  std::optional<double> p;
  bool isRegression = false;

  bool onBothSides() const { return before && after; }
  std::int64_t doubledDifference() const { return *after - *before; }
  std::int64_t difference() const { return halved(*after) - halved(*before); }
  std::optional<double> percent() const {
    if (!onBothSides() || *before == 0) return std::nullopt;
    return 100.0 * static_cast<double>(doubledDifference()) / static_cast<double>(*before);
  }
};

Change changeOf(std::string name, std::vector<std::int64_t> before, std::vector<std::int64_t> after,
                const Limits& limits) {
  Change change;
  change.name = std::move(name);
  if (!before.empty()) change.before = doubledMedian(before);
  if (!after.empty()) change.after = doubledMedian(after);
  if (!change.onBothSides()) return change;
  if (before.size() >= kEnoughBoots && after.size() >= kEnoughBoots) {
    change.p = mannWhitneyP(before, after);
  }
  const bool isNoise = change.p && *change.p >= kSignificant;
  const std::optional<double> percent = change.percent();
  change.isRegression = change.doubledDifference() > 2 * limits.microseconds &&
                        change.doubledDifference() > 0 && (!percent || *percent > limits.percent) &&
                        !isNoise;
  return change;
}

json::object asJson(const Change& change) {
  const auto median = [](const std::optional<std::int64_t>& value) {
    return value ? json::value(halved(*value)) : json::value();
  };
  const auto optional = [](const auto& value) {
    return value ? json::value(*value) : json::value();
  };
  return {{"old", median(change.before)},
          {"new", median(change.after)},
          {"difference", change.onBothSides() ? json::value(change.difference()) : json::value()},
          {"percent", optional(change.percent())},
          {"p", optional(change.p)},
          {"significant", change.p ? json::value(*change.p < kSignificant) : json::value()}};
}

std::string percentText(const Change& change) {
  const std::optional<double> percent = change.percent();
  return percent ? fmt::format("{:+.1f} %", *percent) : "";
}

std::string evidenceText(const Change& change) {
  if (!change.p) return "";
  return fmt::format("{} (p = {:.2g})", *change.p < kSignificant ? "significant" : "noise",
                     *change.p);
}

std::string medianText(const std::optional<std::int64_t>& value) {
  return value ? duration(halved(*value)) : "-";
}

std::string differenceText(const Change& change, const TextStyle& style) {
  if (!change.onBothSides()) return "";
  const std::string text = signedDuration(change.difference());
  if (change.isRegression) return coloured(text, Colour::Red, style);
  const bool better = change.difference() < 0 && (!change.p || *change.p < kSignificant);
  return better ? coloured(text, Colour::Green, style) : text;
}

class Report {
 public:
  Report(const Side& before, const Side& after, const Limits& limits)
      : before_(before),
        after_(after),
        boot_(changeOf("boot", before.boots(), after.boots(), limits)) {
    std::map<std::string, std::pair<std::vector<std::int64_t>, std::vector<std::int64_t>>> both;
    for (const auto& [name, values] : before.plugins()) both[name].first = values;
    for (const auto& [name, values] : after.plugins()) both[name].second = values;
    for (auto& [name, sides] : both) {
      plugins_.push_back(changeOf(name, std::move(sides.first), std::move(sides.second), limits));
    }
    // The greatest change for the worse first; what is on one side only last.
    std::stable_sort(plugins_.begin(), plugins_.end(), [](const Change& one, const Change& other) {
      if (one.onBothSides() != other.onBothSides()) return one.onBothSides();
      return one.onBothSides() && one.doubledDifference() > other.doubledDifference();
    });
  }

  std::vector<std::string> regressions() const {
    std::vector<std::string> names;
    if (boot_.isRegression) names.push_back(boot_.name);
    for (const Change& plugin : plugins_) {
      if (plugin.isRegression) names.push_back(plugin.name);
    }
    return names;
  }

  std::string json() const {
    json::array plugins;
    for (const Change& change : plugins_) {
      json::object plugin{{"name", jsonText(change.name)}};
      for (auto& [key, value] : asJson(change)) plugin[key] = value;
      plugins.emplace_back(std::move(plugin));
    }
    return prettyJson(json::object{{"boot", asJson(boot_)},
                                   {"plugins", std::move(plugins)},
                                   {"regressions", jsonTexts(regressions())}});
  }

  std::string text(const TextStyle& style) const {
    std::string text;
    if (boot_.onBothSides()) {
      text = fmt::format("Boot: {} before, {} after: {}", medianText(boot_.before),
                         medianText(boot_.after), differenceText(boot_, style));
      if (boot_.percent()) text += ", " + percentText(boot_);
      if (boot_.p) text += ", " + evidenceText(boot_);
    } else {
      text = "Boot: nothing ran on one side";
    }
    text +=
        fmt::format("\nMedians of {} before and {} after", counted(before_.boots().size(), "boot"),
                    counted(after_.boots().size(), "boot"));
    if (!boot_.p)
      text += fmt::format("; chance is ruled out only with {} on each side", kEnoughBoots);
    const std::size_t count = regressions().size();
    text += count == 0 ? "; no regressions\n"
                       : "; " + coloured(counted(count, "regression"), Colour::Red, style) + "\n";
    TextTable table({">before", ">after", ">difference", ">", "", "", "name"});
    for (const Change& plugin : plugins_) {
      table.add({medianText(plugin.before), medianText(plugin.after), differenceText(plugin, style),
                 percentText(plugin), evidenceText(plugin),
                 plugin.isRegression ? coloured("regression", Colour::Red, style) : std::string(),
                 fitted(plugin.name, style.width)});
    }
    return text + '\n' + table.text(style);
  }

 private:
  const Side& before_;
  const Side& after_;
  Change boot_;
  std::vector<Change> plugins_;
};

}  // namespace

void Side::add(const ProfileSection& section) {
  const BootSample sample = sampleOf(section);
  if (sample.makespan) boots_.push_back(*sample.makespan);
  for (const auto& [line, run] : sample.runs) plugins_[section.plugins[line].name].push_back(run);
}

Answer compare(const Side& before, const Side& after, const Limits& limits, bool isGate,
               Format format, const TextStyle& style) {
  const Report report(before, after, limits);
  Answer answer;
  answer.output = format == Format::Json ? report.json() : report.text(style);
  answer.status = isGate && !report.regressions().empty() ? 1 : 0;
  return answer;
}

}  // namespace bootforge::analyze
