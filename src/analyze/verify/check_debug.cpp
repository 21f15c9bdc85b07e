#include <algorithm>

#include "analyze/verify/checks.h"

namespace bootforge::analyze {

void checkDebugConfiguration(const Image& image, Reporter& reporter) {
  if (!image.debugText()) return;
  const std::vector<DebugLine>& lines = image.debugLines();
  TextReporter text(reporter, kDebugConfiguration, *image.debugText());
  const auto isEntry = [](const DebugLine& line) { return line.entry.has_value(); };
  const auto first = std::find_if(lines.begin(), lines.end(), isEntry);
  if (first != lines.end()) {
    const auto count = std::count_if(lines.begin(), lines.end(), isEntry);
    const std::string injections =
        count == 1 ? "1 debug injection" : std::to_string(count) + " debug injections";
    text.add("debug-active", first->at, first->entry->name, "the image has " + injections);
  }
  for (const DebugLine& line : lines) {
    if (line.badEscape.empty()) continue;
    text.add("debug-invalid", line.at, line.text.substr(0, line.text.find(':')), line.badEscape);
  }
}

}  // namespace bootforge::analyze
