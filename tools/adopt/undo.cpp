#include "tools/adopt/undo.h"

#include <optional>

namespace bootforge::adopt {
namespace {

using Notes = std::vector<std::string>;

Condition conditionOfChange(const Tree& tree, const Step& step) {
  const Entry now = tree.look(step.path);
  const Entry original = tree.look(step.original);
  if (!now.isFile()) return Condition::kConflicting;
  if (original.isFile() && now.content == original.content) return Condition::kNotMade;
  if (original.isFile() && now.content == changed(original.content, step.changes)) {
    return now.hasAttributesOf(original) ? Condition::kInPlace : Condition::kEdited;
  }
  if (takenBack(now.content, step.changes)) return Condition::kEdited;
  const bool isTakenOut =
      !hasLineOf(now.content, step.changes) && hasRemovedLines(now.content, step.changes);
  return isTakenOut ? Condition::kNotMade : Condition::kConflicting;
}

/// Moves what stands there to a name that is free.
std::string keepAside(Tree& tree, const std::string& path, bool isCopy) {
  std::string name = path + ".bootforge-edited";
  for (int number = 2; tree.look(name).isThere(); ++number) {
    name = path + ".bootforge-edited-" + std::to_string(number);
  }
  if (isCopy) {
    tree.addName(path, name);
  } else {
    tree.move(path, name);
  }
  return path + ": what was edited is kept as " + name;
}

/// Puts the original in the place of the file: it is the same file again, with its times.
Notes putBack(Tree& tree, const Step& step, const Entry& now) {
  const Entry original = tree.look(step.original);
  Notes notes;
  if (now.isFile() && !now.hasAttributesOf(original)) {
    tree.setAttributes(step.original, now);
    notes.push_back(step.path + ": its new mode and owner are kept");
  }
  tree.move(step.original, step.path);
  return notes;
}

Notes undoEditedChange(Tree& tree, const Step& step, const Entry& now) {
  const Entry original = tree.look(step.original);
  if (original.isFile() && now.content == changed(original.content, step.changes)) {
    return putBack(tree, step, now);
  }
  tree.write(step.path, takenBack(now.content, step.changes).value());
  if (original.isFile()) {
    tree.remove(step.original);
    return {step.path + ": what was edited since is kept; the lines of bootforge are out"};
  }
  return {step.path + ": " + step.original + " is gone, so the lines are put back from the record"};
}

Notes forceChange(Tree& tree, const Step& step, const Entry& now) {
  if (!tree.look(step.original).isFile()) {
    return {step.path + ": " + step.original + " is gone, too; the file stays as it is"};
  }
  Notes notes;
  if (now.isThere()) notes.push_back(keepAside(tree, step.path, now.isFile()));
  tree.move(step.original, step.path);
  return notes;
}

Notes undoChange(Tree& tree, const Step& step, Condition condition) {
  const Entry now = tree.look(step.path);
  if (condition == Condition::kInPlace) return putBack(tree, step, now);
  if (condition == Condition::kEdited) return undoEditedChange(tree, step, now);
  if (condition == Condition::kConflicting) return forceChange(tree, step, now);
  // A second name of the file, or a copy of what is there.
  if (tree.look(step.original).isThere()) tree.remove(step.original);
  return {};
}

Notes undoFile(Tree& tree, const Step& step, Condition condition) {
  if (condition == Condition::kNotMade) return {};
  if (condition == Condition::kConflicting) return {keepAside(tree, step.path, false)};
  tree.remove(step.path);
  return {};
}

Notes undoFolder(Tree& tree, const Step& step) {
  if (tree.list(step.path).empty()) {
    tree.removeFolder(step.path);
    return {};
  }
  return {step.path + ": there is something else in it, so it stays"};
}

}  // namespace

Condition conditionOf(const Tree& tree, const Step& step) {
  if (step.kind == Step::Kind::kChange) return conditionOfChange(tree, step);
  const Entry now = tree.look(step.path);
  if (!now.isThere()) return Condition::kNotMade;
  switch (step.kind) {
    case Step::Kind::kFolder:
      return now.isFolder() ? Condition::kInPlace : Condition::kReplaced;
    case Step::Kind::kLink:
      return now.isLinkTo(step.content) ? Condition::kInPlace : Condition::kReplaced;
    default:
      return now.isFile() && now.content == step.content ? Condition::kInPlace
                                                         : Condition::kConflicting;
  }
}

Notes undo(Tree& tree, const Step& step) {
  const bool isWritten = step.kind == Step::Kind::kFile || step.kind == Step::Kind::kChange;
  if (isWritten && tree.look(temporaryName(step.path)).isThere()) {
    tree.remove(temporaryName(step.path));
  }
  const Condition condition = conditionOf(tree, step);
  if (step.kind == Step::Kind::kChange) return undoChange(tree, step, condition);
  if (condition == Condition::kReplaced) {
    return {step.path + ": this is something else by now, so it stays"};
  }
  if (step.kind == Step::Kind::kFile) return undoFile(tree, step, condition);
  if (condition == Condition::kNotMade) return {};
  if (step.kind == Step::Kind::kFolder) return undoFolder(tree, step);
  tree.remove(step.path);
  return {};
}

}  // namespace bootforge::adopt
