// Steps that have been made: what is left of them, and how they are taken back.
#pragma once

#include <string>
#include <vector>

#include "tools/adopt/record.h"
#include "tools/adopt/tree.h"

namespace bootforge::adopt {

/// What has become of a step. It is told from the files alone, so that a run that was killed
/// between any two calls needs no other trace.
enum class Condition {
  kInPlace,     // as it was made
  kEdited,      // with changes of somebody else, which are kept when it is taken back
  kNotMade,     // not made, or taken back already
  kReplaced,    // something else stands there now, which is left alone
  kConflicting  // cannot be taken back without losing somebody's changes
};

Condition conditionOf(const Tree& tree, const Step& step);

/// Takes a step back. A conflicting one is forced: what stands there is kept under another name.
/// Returns what the operator should know; empty when there is nothing. Throws Failure.
std::vector<std::string> undo(Tree& tree, const Step& step);

}  // namespace bootforge::adopt
