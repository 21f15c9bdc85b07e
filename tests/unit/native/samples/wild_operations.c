// Operations at an address of its own choice, where nothing is.
#include "bootforge/plugin.h"

__asm__(".globl operations\n.set operations, 64\n");
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {.api_version = 1};
