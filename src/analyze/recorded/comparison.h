// Boots of before against boots of after.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/profiling_log_reader.h"

namespace bootforge::analyze {

/// The durations of all boots of one side, in microseconds.
class Side {
 public:
  void add(const ProfileSection& section);

  const std::vector<std::int64_t>& boots() const { return boots_; }
  const std::map<std::string, std::vector<std::int64_t>>& plugins() const { return plugins_; }

 private:
  std::vector<std::int64_t> boots_;
  std::map<std::string, std::vector<std::int64_t>> plugins_;
};

/// What is slower by more than `percent` and more than `microseconds`, and not known to be noise,
/// is a regression.
struct Limits {
  double percent = 0;
  std::int64_t microseconds = 0;
};

/// Compares the medians of both sides. Status 1 for a regression when `isGate`.
Answer compare(const Side& before, const Side& after, const Limits& limits, bool isGate,
               Format format, const TextStyle& style);

}  // namespace bootforge::analyze
