#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {.api_version = 1};
