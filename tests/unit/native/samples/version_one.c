// Version 1, with an entry and flags that this version does not know.
#include "bootforge/plugin.h"

static const char* const kFlags[] = {"a", NULL};
static int entry(void) { return 0; }

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1,
    .plugin_version = "9",
    .run_once = true,
    .required_flags = kFlags,
};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {entry, entry};
