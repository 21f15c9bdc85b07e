// The words of a command or a namespace.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace hypcli {

using Path = std::vector<std::string>;

inline bool beginsWith(const Path& path, const Path& start) {
  return path.size() >= start.size() && std::equal(start.begin(), start.end(), path.begin());
}

}  // namespace hypcli
