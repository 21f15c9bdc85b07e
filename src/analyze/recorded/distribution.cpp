#include "analyze/recorded/distribution.h"

#include <algorithm>
#include <cstdlib>

#include "analyze/recorded/boot_sample.h"

namespace bootforge::analyze {

Distribution distributionOf(std::vector<std::int64_t>& values) {
  Distribution distribution;
  distribution.count = values.size();
  if (values.empty()) return distribution;
  auto from = values.begin();
  const auto percentile = [&](std::size_t percent) {
    const std::size_t rank = (values.size() * percent + 99) / 100;
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(rank) - 1;
    // What stands before the last percentile is not greater, so the search begins there.
    std::nth_element(from, place, values.end());
    from = place;
    return *place;
  };
  distribution.p50 = percentile(50);
  distribution.p90 = percentile(90);
  distribution.p99 = percentile(99);
  distribution.most = *std::max_element(from, values.end());
  return distribution;
}

void scoreHosts(std::vector<HostBoots>& hosts) {
  if (hosts.empty()) return;
  constexpr double kConsistency = 0.6745;
  constexpr double kOutlier = 3.5;
  std::vector<std::int64_t> values;
  for (const HostBoots& host : hosts) values.push_back(host.doubledMedian);
  const std::int64_t median = doubledMedian(values);  // in quarters of microseconds
  std::vector<std::int64_t> distances;
  for (const HostBoots& host : hosts) {
    distances.push_back(std::abs(2 * host.doubledMedian - median));
  }
  std::vector<std::int64_t> sorted = distances;
  const auto deviation = static_cast<double>(doubledMedian(sorted)) / 2;
  for (std::size_t index = 0; index < hosts.size(); ++index) {
    const double weighted = kConsistency * static_cast<double>(distances[index]);
    hosts[index].isOutlier = weighted > kOutlier * deviation;
    if (distances[index] == 0) continue;
    hosts[index].score = deviation > 0 ? weighted / deviation : -1;
  }
}

}  // namespace bootforge::analyze
