// A record whose run-once byte no C compiler would have written.
#include <stddef.h>
#include <stdint.h>

static int entry(void) { return 0; }

__attribute__((visibility("default"))) const struct {
  int32_t api_version;
  const char* const* names[2];
  const char* plugin_version;
  unsigned char run_once;
  const char* const* flags[2];
} metadata = {.api_version = 4, .plugin_version = "1", .run_once = 0xa4};

__attribute__((visibility("default"))) const struct {
  int (*entries[2])(void);
} operations = {{entry, NULL}};
