#include "platform/product_state.h"

#include "util/version.h"

// A plain Linux host knows of no product but the program itself.

const char* ProductState_GetName() { return "bootforge"; }

const char* ProductState_GetVersion() { return bootforge::version(); }

const char* ProductState_GetBuildNumberString() { return "0"; }

const char* ProductState_GetCompilationOption() {
#ifdef NDEBUG
  return "release";
#else
  return "debug";
#endif
}
