// Many durations in a few numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bootforge::analyze {

/// Percentiles by nearest rank: values that were there.
struct Distribution {
  std::size_t count = 0;
  std::int64_t p50 = 0;
  std::int64_t p90 = 0;
  std::int64_t p99 = 0;
  std::int64_t most = 0;
};

/// Puts the values in another order.
Distribution distributionOf(std::vector<std::int64_t>& values);

/// The boots of one host.
struct HostBoots {
  std::string host;
  Distribution makespans;
  std::int64_t doubledMedian = 0;  // of its boots, in half microseconds
  // 0.6745 times the distance of its median from that of all hosts, in median absolute deviations;
  // below zero where these are 0 and it has a distance: how far it stands out cannot be told then.
  double score = 0;
  bool isOutlier = false;
};

/// Fills in scores; a score above 3.5 makes an outlier.
void scoreHosts(std::vector<HostBoots>& hosts);

}  // namespace bootforge::analyze
