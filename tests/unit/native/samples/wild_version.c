// A record with a pointer that nobody has relocated.
#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 3, .plugin_version = (const char*)0x10};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
