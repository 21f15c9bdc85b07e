#include "cli/hypcli_dispatcher.h"

#include <array>
#include <exception>
#include <memory>
#include <string>

#include "platform/log.h"

namespace bootforge {
namespace {

/// Where commands are defined. A later directory wins over an earlier one, so the order matters: it
/// is not that of the names.
const std::array<std::string, 4>& commandDirectories() {
  static const std::array<std::string, 4> directories = {
      "/usr/lib/nimbus/hypcli",
      "/usr/lib/nimbus/hypcli/int",
      "/usr/lib/nimbus/hypcli/int/ext",
      "/usr/lib/nimbus/hypcli/ext",
  };
  return directories;
}

}  // namespace

HypcliDispatcher::HypcliDispatcher() {
  for (const std::string& directory : commandDirectories()) {
    try {
      AddExternalDirectory(directory);
    } catch (const std::exception& error) {
      Log_Level(2, "unable to add external directory to the hypcli dispatcher: %s\n", error.what());
    }
  }
}

HypcliDispatcher::~HypcliDispatcher() = default;

HypcliDispatcher& HypcliDispatcher::instance() {
  static const std::shared_ptr<HypcliDispatcher> dispatcher = std::make_shared<HypcliDispatcher>();
  return *dispatcher;
}

}  // namespace bootforge
