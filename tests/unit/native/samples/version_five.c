#include "bootforge/plugin.h"

static const char* const kProvides[] = {"never-linked", NULL};

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 5,
    .provides = kProvides,
};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
