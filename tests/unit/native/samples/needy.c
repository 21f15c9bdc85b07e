// An object that needs a library.
#include <unistd.h>

#include "bootforge/plugin.h"

static int entry(void) { return (int)getppid(); }

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {.api_version = 1};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {entry, NULL};
