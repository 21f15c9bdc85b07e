#include "main/logging.h"

#include <cstdio>
#include <memory>

#include "platform/dictionary.h"
#include "platform/log.h"
#include "platform/product_state.h"

namespace bootforge {

void initialiseLogging(const char* identity) {
  std::fflush(stdout);
  std::setvbuf(stdout, nullptr, _IONBF, 0);

  const std::unique_ptr<Dictionary, decltype(&Dictionary_Free)> config(Dictionary_Create(),
                                                                       &Dictionary_Free);
  Dict_SetString(config.get(), identity, "log.syslogID");
  Dict_SetString(config.get(), "info", "log.syslogLevel");
  Log_SetProductInfo(ProductState_GetName(), ProductState_GetVersion(),
                     ProductState_GetBuildNumberString(), ProductState_GetCompilationOption());
  if (!Log_InitWithSyslogInt(identity, config.get(), 0)) {
    std::fputs("Failed to initialize logging to syslog.\n", stderr);
    return;
  }

  Dictionary_Clear(config.get());
  Dict_SetString(config.get(), "info", "log.stdoutLevel");
  Dict_SetBool(config.get(), true, "log.useTimeStamps.stdio");
  Dict_SetBool(config.get(), true, "log.useMilliseconds.stdio");
  LogOutput* const output = Log_NewStdioOutput(identity, config.get(), 0);
  if (output == nullptr) {
    std::fputs("Failed creating standard out logging interface.\n", stderr);
    return;
  }
  if (!Log_AddOutput(output)) {
    std::fputs("Failed adding standard out logging interface.\n", stderr);
    return;
  }
  Log_SetStderrLevel(0, -1);
}

}  // namespace bootforge
