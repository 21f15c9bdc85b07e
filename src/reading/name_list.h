// Lists of names on the command line.
#pragma once

#include <string>
#include <vector>

namespace bootforge {

/// The items between commas, without the empty ones.
std::vector<std::string> itemsOf(const std::string& text);

}  // namespace bootforge
