// Everything that a record of version 4 can say.
#include "bootforge/plugin.h"

static const char* const kRequires[] = {"network-up", "storage-up", NULL};
static const char* const kProvides[] = {"service-up", "extra-up", NULL};
static const char* const kRequiredFlags[] = {"b", "a", "b", NULL};
static const char* const kDisablingFlags[] = {"z", NULL};

static int entry(void) { return 0; }

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 4,
    .requires_ = kRequires,
    .provides = kProvides,
    .plugin_version = "2.5",
    .run_once = true,
    .required_flags = kRequiredFlags,
    .disabling_flags = kDisablingFlags,
};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {entry, entry};
