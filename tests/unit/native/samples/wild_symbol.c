// A record at an address of its own choice, where nothing is.
#include "bootforge/plugin.h"

__asm__(".globl metadata\n.set metadata, 64\n");
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
