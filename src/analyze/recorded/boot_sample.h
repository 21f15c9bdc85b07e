// What comparisons of many boots need of each.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "analyze/recorded/profiling_log_reader.h"

namespace bootforge::analyze {

/// The durations of one boot in microseconds.
struct BootSample {
  std::optional<std::int64_t> makespan;  // from the first start to the last end; none: nothing ran
  // The plugins that ran, in the order of the log: index of the line and run time.
  std::vector<std::pair<std::size_t, std::int64_t>> runs;
};

BootSample sampleOf(const ProfileSection& section);

/// Twice the median, so that it is exact: a median of an even count is the mean of the two middle
/// values. The values, of which there must be one, are put in another order.
std::int64_t doubledMedian(std::vector<std::int64_t>& values);

/// Half of it, rounded to whole microseconds, up at the half.
inline std::int64_t halved(std::int64_t doubled) {
  return doubled >= 0 ? (doubled + 1) / 2 : -(-doubled / 2);
}

}  // namespace bootforge::analyze
