// Adopting a host, and giving it back.
#pragma once

#include <string>
#include <vector>

#include "analyze/image/root_folder.h"
#include "tools/adopt/plan.h"
#include "tools/adopt/tree.h"

namespace bootforge::adopt {

/// What stands in the way of what was asked for; nothing has been changed.
class Refusal : public Exception {
 public:
  using Exception::Exception;
};

/// What was done, or found, in lines to be shown.
struct Outcome {
  bool isGood = true;  // as it was asked for; of a status: adopted, and everything in place
  std::vector<std::string> lines;
  std::vector<std::string> notes;  // what the operator should know beside
};

/// A host whose init starts bootforge, or could. All paths are resolved inside the root.
class Adoption {
 public:
  /// What is changed is changed in `tree`.
  Adoption(const analyze::RootFolder& root, Tree& tree);

  /// Puts everything in place: also what is missing of it, be it that scripts were added or that a
  /// run before was ended half-way. Throws Refusal, and Exception when something failed; what has
  /// been done is then taken back.
  Outcome enable();

  /// Takes everything back. Throws Refusal when that would lose what somebody has edited, unless
  /// it is forced, and Exception when something failed; the next run goes on from there.
  Outcome disable(bool isForced);

  Outcome status() const;

 private:
  void make(const Step& step);
  void writeRecord(const Record& record);
  void removeLeftOver();
  void carryOut(const Record& record, Outcome& outcome);
  void takeBack(const Record& record, bool isForced, Outcome& outcome);
  bool addLaunchers(Record& record, Outcome& outcome);

  const analyze::RootFolder& root_;
  Tree& tree_;
  std::string recordPath_;
};

}  // namespace bootforge::adopt
