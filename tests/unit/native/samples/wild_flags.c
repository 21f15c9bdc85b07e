// A pointer of the record that leads nowhere.
#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 3,
    .required_flags = (const char* const*)~(uintptr_t)7,
};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
