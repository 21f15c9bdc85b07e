// The boots of many hosts, shown.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/distribution.h"

namespace bootforge::analyze {

struct FleetView {
  struct Plugin {
    std::string name;
    Distribution runs;
    std::optional<std::size_t> failures;  // none where no boot came with messages
  };

  std::size_t boots = 0;
  std::size_t unreadable = 0;
  std::size_t damaged = 0;
  Distribution boot;  // of makespans
  std::vector<Plugin> plugins;
  std::vector<HostBoots> hosts;  // by name
};

std::string fleetJson(const FleetView& view, bool byHost);
std::string fleetText(const FleetView& view, bool byHost, const TextStyle& style);

}  // namespace bootforge::analyze
