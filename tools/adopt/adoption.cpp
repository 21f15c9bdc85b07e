#include "tools/adopt/adoption.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "analyze/image/init_folder.h"
#include "tools/adopt/host_tree.h"
#include "tools/adopt/undo.h"

namespace bootforge::adopt {
namespace {

bool isLauncher(const Step& step) {
  return step.kind == Step::Kind::kLink && step.content == analyze::kLauncher;
}

bool isWhole(const Tree& tree, const Record& record) {
  return std::all_of(record.steps.begin(), record.steps.end(), [&](const Step& step) {
    const Condition condition = conditionOf(tree, step);
    return condition == Condition::kInPlace || condition == Condition::kEdited;
  });
}

std::string launchersText(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " launcher" : " launchers");
}

/// What the steps have made, the launchers in one line.
std::vector<std::string> describe(const Record& record) {
  std::vector<std::string> lines;
  const auto launchers = std::count_if(record.steps.begin(), record.steps.end(), isLauncher);
  if (launchers > 0) {
    lines.push_back("made " + launchersText(static_cast<std::size_t>(launchers)) + " in " +
                    analyze::kLauncherLinks);
  }
  for (const Step& step : record.steps) {
    if (isLauncher(step)) continue;
    if (step.kind == Step::Kind::kLink) {
      lines.push_back("linked " + step.path + " to " + step.content);
    }
    if (step.kind == Step::Kind::kFile) lines.push_back("made " + step.path);
    if (step.kind == Step::Kind::kChange) {
      lines.push_back("changed " + step.path + "; the original is " + step.original);
    }
  }
  return lines;
}

std::string conditionText(const Step& step, Condition condition) {
  switch (condition) {
    case Condition::kInPlace:
      return "in place";
    case Condition::kEdited:
      return "in place, and edited since";
    case Condition::kNotMade:
      return step.kind == Step::Kind::kChange ? "without the lines of bootforge" : "missing";
    case Condition::kReplaced:
      return "something else by now";
    case Condition::kConflicting:
      break;
  }
  return "changed since, so that it cannot be taken back";
}

}  // namespace

Adoption::Adoption(const analyze::RootFolder& root, Tree& tree)
    : root_(root), tree_(tree), recordPath_(resolve(root, kRecord, false)) {}

Outcome Adoption::enable() {
  Outcome outcome;
  std::optional<Record> record = readRecord(tree_, recordPath_);
  if (record && isWhole(tree_, *record)) {
    if (!addLaunchers(*record, outcome)) outcome.lines.emplace_back("it is adopted already");
    return outcome;
  }
  // A run that was ended half-way, or something was undone by hand: from the beginning.
  if (record) takeBack(*record, false, outcome);
  Plan plan = planFor(root_, tree_);
  carryOut(plan.record, outcome);
  outcome.lines = describe(plan.record);
  outcome.lines.emplace_back(plan.record.init == "systemd"
                                 ? "the next boot runs bootforge for its plugins"
                                 : "the next boot starts the init scripts with bootforge");
  outcome.notes.insert(outcome.notes.end(), plan.notes.begin(), plan.notes.end());
  return outcome;
}

Outcome Adoption::disable(bool isForced) {
  Outcome outcome;
  const std::optional<Record> record = readRecord(tree_, recordPath_);
  if (!record) {
    removeLeftOver();
    outcome.lines.emplace_back("it is not adopted, so there is nothing to take back");
    return outcome;
  }
  takeBack(*record, isForced, outcome);
  outcome.lines.emplace_back(outcome.notes.empty()
                                 ? "it is adopted no longer; every file is as it was before"
                                 : "it is adopted no longer");
  return outcome;
}

Outcome Adoption::status() const {
  const std::optional<Record> record = readRecord(tree_, recordPath_);
  if (!record) return {false, {"not adopted"}, {}};
  Outcome outcome;
  outcome.isGood = isWhole(tree_, *record);
  outcome.lines.push_back(std::string(outcome.isGood ? "adopted" : "adopted in part") +
                          ", init is " + record->init);
  std::size_t launchers = 0;
  for (const Step& step : record->steps) {
    const Condition condition = conditionOf(tree_, step);
    if (isLauncher(step) && condition == Condition::kInPlace) {
      ++launchers;
      continue;
    }
    if (step.kind == Step::Kind::kFolder && condition == Condition::kInPlace) continue;
    outcome.lines.push_back(step.path + ": " + conditionText(step, condition));
  }
  if (launchers > 0) {
    outcome.lines.push_back(std::string(analyze::kLauncherLinks) + ": " + launchersText(launchers) +
                            " in place");
  }
  if (record->init == "systemd") return outcome;
  for (const Step& step : missingLaunchers(root_, tree_)) {
    const bool isNew = step.kind == Step::Kind::kLink &&
                       std::none_of(record->steps.begin(), record->steps.end(),
                                    [&](const Step& each) { return each.path == step.path; });
    if (!isNew) continue;
    outcome.isGood = false;
    outcome.lines.push_back(step.path + ": missing; \"bootforge-adopt enable\" makes it");
  }
  return outcome;
}

/// Of an adopted host, whose scripts may be others by now. Returns whether there were any to add.
bool Adoption::addLaunchers(Record& record, Outcome& outcome) {
  if (record.init == "systemd") return false;
  Record added{record.init, missingLaunchers(root_, tree_)};
  if (added.steps.empty()) return false;
  // The last step stays the one that makes the boot another one.
  record.steps.insert(record.steps.end() - 1, added.steps.begin(), added.steps.end());
  writeRecord(record);
  tree_.settle();
  for (const Step& step : added.steps) make(step);
  tree_.settle();
  outcome.lines = describe(added);
  return true;
}

void Adoption::carryOut(const Record& record, Outcome& outcome) {
  writeRecord(record);
  try {
    tree_.settle();
    for (const Step& step : record.steps) {
      // All that the new boot needs is on the disk before the boot is another one.
      if (&step == &record.steps.back()) tree_.settle();
      make(step);
    }
    tree_.settle();
  } catch (const Exception& error) {
    std::string text = error.what();
    try {
      takeBack(record, false, outcome);
      text += "; what was done is taken back";
    } catch (const Exception& another) {
      text += std::string("; taking back what was done failed, too: ") + another.what() +
              "; \"bootforge-adopt disable\" goes on";
    }
    throw Exception(text);
  }
}

/// A run that was killed may have left it.
void Adoption::removeLeftOver() {
  const std::string path = temporaryName(recordPath_);
  if (tree_.look(path).isThere()) tree_.remove(path);
}

void Adoption::writeRecord(const Record& record) {
  removeLeftOver();
  tree_.write(recordPath_, textOf(record));
}

void Adoption::make(const Step& step) {
  switch (step.kind) {
    case Step::Kind::kFolder:
      return tree_.makeFolder(step.path);
    case Step::Kind::kLink:
      return tree_.makeLink(step.path, step.content);
    case Step::Kind::kFile:
      return tree_.write(step.path, step.content);
    case Step::Kind::kChange:
      tree_.addName(step.path, step.original);
      tree_.settle();
      return tree_.write(step.path, changed(tree_.look(step.original).content, step.changes));
  }
}

void Adoption::takeBack(const Record& record, bool isForced, Outcome& outcome) {
  std::string conflicts;
  for (const Step& step : record.steps) {
    if (conditionOf(tree_, step) != Condition::kConflicting) continue;
    conflicts += (conflicts.empty() ? "" : "; ") + step.path + ": " +
                 conditionText(step, Condition::kConflicting);
  }
  if (!conflicts.empty() && !isForced) {
    throw Refusal(
        conflicts +
        ": put its lines right, or say \"bootforge-adopt disable --force\", which keeps it "
        "under another name");
  }
  for (auto step = record.steps.rbegin(); step != record.steps.rend(); ++step) {
    const std::vector<std::string> notes = undo(tree_, *step);
    outcome.notes.insert(outcome.notes.end(), notes.begin(), notes.end());
    // The boot is as before on the disk, too, before anything that the other one needs is gone.
    if (step == record.steps.rbegin()) tree_.settle();
  }
  tree_.settle();
  removeLeftOver();
  tree_.remove(recordPath_);
  tree_.settle();
}

}  // namespace bootforge::adopt
