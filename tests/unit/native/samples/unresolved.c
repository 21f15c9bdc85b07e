// Calls what nobody has, which only the native executor minds.
#include "bootforge/plugin.h"

int nobody_has_this(void);

static int entry(void) { return nobody_has_this(); }

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {.api_version = 1};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {entry, NULL};
