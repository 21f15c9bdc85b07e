#include "analyze/recorded/boot_sample.h"

#include <algorithm>

namespace bootforge::analyze {

BootSample sampleOf(const ProfileSection& section) {
  BootSample sample;
  Moment first = 0;
  Moment last = 0;
  for (std::size_t index = 0; index < section.plugins.size(); ++index) {
    const ProfiledPlugin& plugin = section.plugins[index];
    if (plugin.start == 0 || plugin.end == 0) continue;
    const Moment end = std::max(plugin.start, plugin.end);
    first = sample.runs.empty() ? plugin.start : std::min(first, plugin.start);
    last = sample.runs.empty() ? end : std::max(last, end);
    sample.runs.emplace_back(index, end - plugin.start);
  }
  if (!sample.runs.empty()) sample.makespan = last - first;
  return sample;
}

std::int64_t doubledMedian(std::vector<std::int64_t>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return 2 * *middle;
  return *middle + *std::max_element(values.begin(), middle);
}

}  // namespace bootforge::analyze
