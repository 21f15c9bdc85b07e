#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
