// A pointer of the record that is moved with the object, and leads far behind it.
#include "bootforge/plugin.h"

extern const struct bootforge_metadata metadata;

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 3,
    .provides = (const char* const*)((const char*)&metadata + 0x10000000000),
};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
