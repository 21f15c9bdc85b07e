// A pointer of the record that leads nowhere.
#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 3,
    .provides = (const char* const*)8,
};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
