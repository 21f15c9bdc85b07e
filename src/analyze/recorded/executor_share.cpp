#include "analyze/recorded/executor_share.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <numeric>
#include <utility>

namespace bootforge::analyze {
namespace {

__extension__ using Wide = __int128;

/// A stretch of time in which as many plugins share the executor.
struct Stretch {
  std::int64_t start = 0;
  std::int64_t end = 0;
  std::int64_t sharers = 0;
};

/// The stretches with sharers, ascending.
std::vector<Stretch> stretchesOf(const std::vector<TimedPlugin>& plugins) {
  std::map<std::int64_t, std::int64_t> changes;
  for (const TimedPlugin& plugin : plugins) {
    if (!plugin.ran || !plugin.usesExecutor || plugin.run == 0) continue;
    ++changes[plugin.start];
    --changes[plugin.end];
  }
  std::vector<Stretch> stretches;
  std::int64_t sharers = 0;
  std::int64_t before = 0;
  for (const auto& [moment, change] : changes) {
    if (sharers > 0) stretches.push_back({before, moment, sharers});
    sharers += change;
    before = moment;
  }
  return stretches;
}

/// The least common multiple of all numbers of sharers; 0 when 62 bits do not hold it.
std::int64_t commonMultiple(const std::vector<Stretch>& stretches) {
  constexpr Wide kMost = Wide{1} << 62U;
  Wide multiple = 1;
  for (const Stretch& stretch : stretches) {
    const auto known = static_cast<std::int64_t>(multiple);
    multiple *= stretch.sharers / std::gcd(known, stretch.sharers);
    if (multiple > kMost) return 0;
  }
  return static_cast<std::int64_t>(multiple);
}

/// The integral of 1/k from the first stretch up to a moment not before it, times `unit`.
template <typename Number>
class Advance {
 public:
  Advance(std::vector<Stretch> stretches, Number unit) : stretches_(std::move(stretches)) {
    before_.reserve(stretches_.size() + 1);
    before_.push_back(0);
    for (const Stretch& stretch : stretches_) {
      rates_.push_back(unit / static_cast<Number>(stretch.sharers));
      before_.push_back(before_.back() +
                        rates_.back() * static_cast<Number>(stretch.end - stretch.start));
    }
  }

  Number at(std::int64_t moment) const {
    const auto place = std::upper_bound(
        stretches_.begin(), stretches_.end(), moment,
        [](std::int64_t value, const Stretch& stretch) { return value < stretch.start; });
    const auto index = static_cast<std::size_t>(place - stretches_.begin()) - 1;
    const std::int64_t within = std::min(moment, stretches_[index].end) - stretches_[index].start;
    return before_[index] + rates_[index] * static_cast<Number>(within);
  }

 private:
  const std::vector<Stretch> stretches_;
  std::vector<Number> rates_;
  std::vector<Number> before_;
};

}  // namespace

void shareExecutor(std::vector<TimedPlugin>& plugins) {
  const std::vector<Stretch> stretches = stretchesOf(plugins);
  const Wide unit = commonMultiple(stretches);
  const Advance<Wide> exact(stretches, unit);
  const Advance<long double> rough(stretches, 1);
  for (TimedPlugin& plugin : plugins) {
    if (!plugin.ran || plugin.run == 0) continue;
    if (!plugin.usesExecutor) {
      plugin.work = plugin.run;
      plugin.exactWork = static_cast<long double>(plugin.run);
    } else if (unit != 0) {
      const Wide advance = exact.at(plugin.end) - exact.at(plugin.start);
      plugin.work = static_cast<std::int64_t>((2 * advance + unit) / (2 * unit));
      plugin.exactWork = static_cast<long double>(advance) / static_cast<long double>(unit);
    } else {
      plugin.exactWork = rough.at(plugin.end) - rough.at(plugin.start);
      plugin.work = static_cast<std::int64_t>(plugin.exactWork + 0.5L);
    }
    plugin.waitExecutor = plugin.run - plugin.work;
  }
}

}  // namespace bootforge::analyze
