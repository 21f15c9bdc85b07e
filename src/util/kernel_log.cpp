#include "util/kernel_log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdlib>
#include <memory>

#include "platform/hvkctl.h"
#include "platform/log.h"

namespace bootforge {

void kernelLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::unique_ptr<char, decltype(&std::free)> text(Str_SafeVasprintf(format, arguments),
                                                         &std::free);
  va_end(arguments);
  try {
    HvkCtl::Util::Sysinfo node(HvkCtl::Util::kSystemLogNode);
    node.AddInput(text.get());
    node.Set();
  } catch (const std::exception& error) {
    Log_Syslog(LOG_ERR, "Exception occurred while logging msg: %s", error.what());
    Log_Syslog(LOG_ERR, "%s", text.get());
  } catch (...) {
    Log_Syslog(LOG_ERR, "Unexpected exception while logging msg");
    Log_Syslog(LOG_ERR, "%s", text.get());
  }
}

}  // namespace bootforge
