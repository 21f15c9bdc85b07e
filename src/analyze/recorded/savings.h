// What a boot would gain from one plugin's being faster.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// By how many microseconds the simulated boot, with the recorded number of workers, ends sooner
/// when one plugin is changed and the others stay as they are. Less than 0 where the boot would end
/// later: another order of the workers may suit it less.
struct Saving {
  std::int64_t half = 0;               // it does half of its work, rounded down
  std::int64_t none = 0;               // it has nothing to do
  std::optional<std::int64_t> native;  // the same work without the executor, where it used that
};

struct Savings {
  std::int64_t makespan = 0;                   // of the simulated boot without a change
  std::optional<double> modelError;            // of that against the recorded one
  std::vector<std::optional<Saving>> plugins;  // as in the timeline; none where none was worked out
};

/// Works out what each plugin that ran would save, with no more than `mostNodes` nodes simulated in
/// all, or fewer where there are many workers: those of the critical chain first, then those with
/// most work. Changes are by name, as those of the command `simulate` are: plugins of one name are
/// changed together.
Savings findSavings(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                    std::size_t mostNodes);

}  // namespace bootforge::analyze
