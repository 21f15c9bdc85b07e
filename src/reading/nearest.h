// Names that may have been meant.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace bootforge {

/// How many letters have to be put in, taken out, exchanged or swapped with their neighbour to turn
/// one word into the other; more than `most` is said as `most` + 1.
std::size_t editDistance(std::string_view one, std::string_view other, std::size_t most);

/// The names that a misspelt one is nearly like, nearest first, equals by name; at most three. None
/// when no name is near: a third of the letters may differ, and case counts for nothing where that
/// is all.
std::vector<std::string_view> nearestNames(std::string_view name,
                                           const std::vector<std::string_view>& known);

}  // namespace bootforge
