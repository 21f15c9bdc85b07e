#include "util/system_alert.h"

#include "platform/hvkctl.h"
#include "platform/log.h"

namespace bootforge {

void raiseSystemAlert(const std::string& text) {
  try {
    HvkCtl::System::SystemInfoImpl().SetSystemAlert(text);
  } catch (const std::exception& error) {
    Log_Level(3, "unable to raise system alert: %s.\n", error.what());
  } catch (...) {
    Log_Level(3, "unable to raise system alert.\n");
  }
}

}  // namespace bootforge
