// A record with the first entry only.
#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {.api_version = 1};
BOOTFORGE_EXPORT const bootforge_entry operations = NULL;
