// Null pointers wherever a pointer may be null.
#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {.api_version = 3};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
