// A log on standard output, without the part of a line that differs from run to run.
#pragma once

#include <gtest/gtest.h>

#include "platform/dictionary.h"
#include "platform/log.h"

namespace bootforge::test {

inline void logToStdoutPlainly() {
  Dictionary* config = Dictionary_Create();
  Dict_SetBool(config, false, "log.useTimeStamps.stdio");
  ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", config, 0)));
  Dictionary_Free(config);
}

}  // namespace bootforge::test
