// Whether two sides differ by more than chance.
#pragma once

#include <cstdint>
#include <vector>

namespace bootforge::analyze {

/// The two-sided p of the Mann-Whitney test: how likely sides of one kind would differ in rank as
/// much as these do. Exact, ties included, for up to 50 values in all; beyond, by the normal
/// approximation with corrections for ties and continuity. Neither side may be empty.
double mannWhitneyP(const std::vector<std::int64_t>& one, const std::vector<std::int64_t>& other);

}  // namespace bootforge::analyze
