// A list whose second name leads nowhere.
#include "bootforge/plugin.h"

static const char* const kRequires[] = {"a", (const char*)16, NULL};

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1,
    .requires_ = kRequires,
};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
