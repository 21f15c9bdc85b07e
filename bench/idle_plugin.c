/* A native plugin that does nothing. */
#include <bootforge/plugin.h>

static int start(void) { return 0; }

static const char* const provides_list[] = {"bench-ready", NULL};

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1,
    .provides = provides_list,
};

BOOTFORGE_EXPORT const struct bootforge_operations operations = {
    .start = start,
};
