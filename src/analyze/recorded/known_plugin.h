// What a recorded boot needs to know of an image.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bootforge::analyze {

/// A plugin or an init script as the image describes it; in a list, in linking order.
struct KnownPlugin {
  enum class Kind { Json, Native, Debug, Script };

  std::string name;
  Kind kind = Kind::Json;
  // Names of milestones in the order of the description, repetitions kept; empty for scripts.
  std::vector<std::string> required;
  std::vector<std::string> provided;
  std::uint32_t level = 0;   // of a script: its start priority
  bool hasCommands = false;  // a JSON plugin whose activation gives the executor commands to run
  // Why flags, lists or the run-once record keep it from running; none when it takes part. One that
  // is left out still has its edges.
  std::optional<std::string> leftOut;
};

}  // namespace bootforge::analyze
