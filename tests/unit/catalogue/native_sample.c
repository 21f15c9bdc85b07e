// A native plugin that does nothing, for the tests of discovery.
#include "bootforge/plugin.h"

static const char* const kProvides[] = {"native-sample-up", NULL};
static const char* const kRequiredFlags[] = {"sample-on", NULL};

static int start(void) { return 0; }

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 4,
    .provides = kProvides,
    .plugin_version = "1.0",
    .run_once = true,
    .required_flags = kRequiredFlags,
};

BOOTFORGE_EXPORT const struct bootforge_operations operations = {.start = start};
