#include <algorithm>
#include <memory>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "analyze/image/cycles.h"
#include "analyze/image/wait_graph.h"
#include "analyze/verify/checks.h"
#include "reading/nearest.h"

namespace bootforge::analyze {
namespace {

using Index = WaitGraph::Index;

// Comparisons of names: a hundred thousand misspelt ones are not each compared with as many others.
constexpr std::size_t kMostComparisons = 2'000'000;

class GraphCheck {
 public:
  GraphCheck(const Image& image, Reporter& reporter)
      : image_(image), reporter_(reporter), graph_(image) {}

  void checkMilestones() {
    for (Index i = 0; i < graph_.size(); ++i) {
      if (graph_.kind(i) == WaitGraph::Kind::Milestone) checkMilestone(i);
    }
    reportMilestones();
  }

  void checkCycles() {
    const Cycles cycles(graph_);
    for (const Cycle& cycle : cycles.all()) {
      const Index first = cycle.members.front();
      const std::unordered_set<Index> members(cycle.members.begin(), cycle.members.end());
      const std::vector<std::string> chain = namesOf(graph_, cycle.chain);
      std::string drawn;
      for (const std::string& name : chain) drawn += (drawn.empty() ? "" : " -> ") + name;
      Finding& finding = addAt("cycle", first, milestoneIn(first, cycle, members),
                               "plugins wait for each other: " + drawn);
      finding.subject = graph_.name(first);
      finding.members = namesOf(graph_, cycle.members);
      finding.cycle = chain;
      finding.blocked = cycle.blocked;
      if (cycle.blocked == 0) continue;
      finding.help = std::to_string(cycle.blocked) +
                     (cycle.blocked == 1 ? " more waits" : " more wait") + " behind them.";
    }
  }

 private:
  /// Where a plugin says what it is tied to.
  struct Source {
    const std::string* path;
    const std::string* text;
  };

  /// Something about a milestone, at the place where a plugin requires it.
  struct MilestoneFinding {
    std::string_view rule;
    Source source;
    std::optional<std::size_t> at;
    std::string name;
    std::string message;
    std::string help;
  };

  void checkMilestone(Index milestone) {
    const WaitGraph::Indices& dependents = graph_.dependents(milestone);
    const auto requirer = std::find_if(dependents.begin(), dependents.end(),
                                       [this](Index index) { return !graph_.isDone(index); });
    if (requirer == dependents.end()) return;
    const std::string& name = graph_.name(milestone);
    const WaitGraph::Indices& providers = graph_.prerequisites(milestone);
    const Source source = sourceOf(*requirer);
    if (providers.empty()) {
      found_.push_back({"milestone-unprovided", source, placeOf(*requirer, name), name,
                        "the milestone \"" + name + "\" is not provided by any plugin",
                        nearestProvided(name)});
    } else if (std::all_of(providers.begin(), providers.end(),
                           [this](Index index) { return graph_.isDone(index); })) {
      std::string message = "all that provide the milestone \"" + name + "\" are left out:";
      for (const Index provider : withoutRepeats(providers)) message += " " + graph_.name(provider);
      found_.push_back(
          {"milestone-left-out", source, placeOf(*requirer, name), name, std::move(message), {}});
    }
  }

  /// In the order of their places, so that no text is walked for each of them.
  void reportMilestones() {
    std::stable_sort(found_.begin(), found_.end(),
                     [](const MilestoneFinding& one, const MilestoneFinding& other) {
                       return std::tie(*one.source.path, one.at) <
                              std::tie(*other.source.path, other.at);
                     });
    std::unique_ptr<TextReporter> text;
    const std::string* last = nullptr;
    for (MilestoneFinding& found : found_) {
      if (found.source.text != last) {
        last = found.source.text;
        text = std::make_unique<TextReporter>(reporter_, *found.source.path, *last);
      }
      Finding& finding =
          found.at
              ? text->add(found.rule, *found.at, found.name, std::move(found.message))
              : reporter_.add(found.rule, *found.source.path, found.name, std::move(found.message));
      finding.help = std::move(found.help);
    }
  }

  Source sourceOf(Index plugin) const {
    static const std::string debugConfiguration = kDebugConfiguration;
    const Node& node = graph_.node(plugin);
    if (image_.debugLineOf(node) != nullptr) return {&debugConfiguration, &*image_.debugText()};
    const PluginFile& file = *image_.fileOf(node);
    return {&file.path, &file.text};
  }

  /// The first place at which a plugin requires a milestone; none in a shared object.
  std::optional<std::size_t> placeOf(Index plugin, const std::string& milestone) {
    const Node& node = graph_.node(plugin);
    if (const DebugLine* const line = image_.debugLineOf(node)) return line->at;
    const auto [known, isNew] = required_.try_emplace(plugin);
    if (isNew) {
      for (const PlacedString& name : image_.fileOf(node)->description.requires_) {
        known->second.emplace(name.text, name.at);
      }
    }
    const auto place = known->second.find(milestone);
    if (place == known->second.end()) return std::nullopt;
    return place->second;
  }

  /// A finding at the place where a plugin requires a milestone.
  Finding& addAt(std::string_view rule, Index plugin, const std::string& milestone,
                 const std::string& message) {
    const Source source = sourceOf(plugin);
    const std::optional<std::size_t> at = placeOf(plugin, milestone);
    if (!at) return reporter_.add(rule, *source.path, graph_.name(plugin), message);
    return TextReporter(reporter_, *source.path, *source.text)
        .add(rule, *at, graph_.name(plugin), message);
  }

  /// What a member of a cycle waits for in it: on the chain that is shown, where it is part of
  /// that.
  std::string milestoneIn(Index member, const Cycle& cycle,
                          const std::unordered_set<Index>& members) const {
    const auto place = std::find(cycle.chain.begin(), cycle.chain.end(), member);
    if (place != cycle.chain.end() && std::next(place) != cycle.chain.end()) {
      return graph_.name(*std::next(place));
    }
    for (const Index milestone : graph_.prerequisites(member)) {
      const WaitGraph::Indices& providers = graph_.prerequisites(milestone);
      if (std::any_of(providers.begin(), providers.end(),
                      [&members](Index index) { return members.contains(index); })) {
        return graph_.name(milestone);
      }
    }
    return {};
  }

  std::string nearestProvided(const std::string& name) {
    if (provided_.empty()) {
      for (Index i = 0; i < graph_.size(); ++i) {
        const bool isMilestone = graph_.kind(i) == WaitGraph::Kind::Milestone;
        if (isMilestone && !graph_.prerequisites(i).empty()) provided_.push_back(graph_.name(i));
      }
    }
    comparisons_ += provided_.size();
    if (comparisons_ > kMostComparisons) return {};
    std::string text;
    for (const std::string_view nearest : nearestNames(name, provided_)) {
      text += (text.empty() ? "Did you mean \"" : ", or \"") + std::string(nearest) + '"';
    }
    return text.empty() ? text : text + "?";
  }

  const Image& image_;
  Reporter& reporter_;
  const WaitGraph graph_;
  std::unordered_map<Index, std::unordered_map<std::string_view, std::size_t>> required_;
  std::vector<MilestoneFinding> found_;
  std::vector<std::string_view> provided_;
  std::size_t comparisons_ = 0;
};

}  // namespace

void checkGraph(const Image& image, Reporter& reporter) {
  GraphCheck check(image, reporter);
  check.checkMilestones();
  check.checkCycles();
}

}  // namespace bootforge::analyze
