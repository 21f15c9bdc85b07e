// The dispatcher of management-CLI commands inside the executor process.
#pragma once

#include "platform/autocli.h"

namespace bootforge {

/// Knows the commands of the host's command directories. A directory that cannot be added costs its
/// commands and a message at level 2; anything but a std::exception leaves the constructor.
class HypcliDispatcher : public CppTools::AutoCli::Dispatcher {
 public:
  HypcliDispatcher();
  ~HypcliDispatcher() override;

  /// The dispatcher of this process, made by the first call and kept to the end of the process.
  /// Takes no lock: for the event-loop thread of the executor process.
  static HypcliDispatcher& instance();
};

}  // namespace bootforge
