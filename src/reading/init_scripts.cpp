#include "reading/init_scripts.h"

#include <algorithm>
#include <sstream>

#include "reading/number.h"

namespace bootforge {
namespace {

/// Calls `take` with each line and its offset until it returns true; whether it did.
template <typename Take>
bool anyLine(std::string_view text, Take take) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    if (take(text.substr(at, end - at), at)) return true;
    at = end + 1;
  }
  return false;
}

}  // namespace

std::optional<InitListLine> readInitListLine(std::string_view line) {
  std::istringstream fields{std::string(line)};
  InitListLine result;
  if (!(fields >> result.path)) return std::nullopt;
  fields >> result.priority;
  return result;
}

std::vector<InitListLine> readInitList(std::string_view text) {
  std::vector<InitListLine> lines;
  anyLine(text, [&lines](std::string_view line, std::size_t at) {
    if (std::optional<InitListLine> entry = readInitListLine(line)) {
      lines.push_back(*std::move(entry));
      lines.back().at = at;
    }
    return false;
  });
  return lines;
}

std::optional<int> startPriorityIn(std::string_view script) {
  std::optional<int> priority;
  anyLine(script, [&priority](std::string_view line, std::size_t) {
    if (!line.starts_with('#')) return false;
    std::istringstream words{std::string(line.substr(1))};
    std::string key;
    std::string levels;
    std::string start;
    std::string stop;
    if (!(words >> key >> levels >> start >> stop) || key != "chkconfig:" || !numberIn<int>(stop)) {
      return false;
    }
    priority = numberIn<int>(start);
    return true;
  });
  return priority;
}

bool hasLsbHeader(std::string_view script) {
  return anyLine(script, [](std::string_view line, std::size_t) {
    return line.starts_with("### BEGIN INIT INFO");
  });
}

std::optional<int> startNumberOf(std::string_view link, std::string_view name) {
  if (!link.starts_with('S') || link.size() <= name.size() + 1 || !link.ends_with(name)) {
    return std::nullopt;
  }
  return numberIn<int>(link.substr(1, link.size() - name.size() - 1));
}

}  // namespace bootforge
