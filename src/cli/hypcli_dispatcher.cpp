#include "cli/hypcli_dispatcher.h"

#include <exception>
#include <memory>
#include <string>

#include "cli/command_directories.h"
#include "platform/log.h"

namespace bootforge {
HypcliDispatcher::HypcliDispatcher() {
  for (const char* const directory : kCommandDirectories) {
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
