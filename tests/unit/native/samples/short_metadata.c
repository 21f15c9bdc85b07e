// A record of version 3 that ends where those of version 2 may end.
#include "bootforge/plugin.h"

BOOTFORGE_EXPORT const struct {
  int32_t api_version;
  const char* const* names[2];
} metadata = {.api_version = 3};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {NULL, NULL};
