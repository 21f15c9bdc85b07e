/*
 * A native plugin in C: asks the kernel to keep programs in memory rather than swap them out.
 *
 * Build with "make", put libswap_tuning.so into the plugin directory, and it takes part in the next
 * boot as the plugin "swap_tuning".
 */
#include <bootforge/plugin.h>
#include <stdio.h>

static int write_setting(const char* path, const char* value) {
  FILE* file = fopen(path, "w");
  if (file == NULL) {
    perror(path);
    return 1;
  }
  int failed = fprintf(file, "%s\n", value) < 0;
  /* The kernel refuses a value when it is written: for a buffered file, when it is closed. */
  if (fclose(file) != 0) failed = 1;
  if (failed) perror(path);
  return failed;
}

static int start(void) { return write_setting("/proc/sys/vm/swappiness", "10"); }

/* Milestones: after the kernel's parameters have been set, before the host counts as ready. */
static const char* const requires_list[] = {"kernel-ready", NULL};
static const char* const provides_list[] = {"memory-tuned", NULL};

/* Version 1: what it needs, what it gives, and one entry. */
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1,
    .requires_ = requires_list,
    .provides = provides_list,
};

BOOTFORGE_EXPORT const struct bootforge_operations operations = {
    .start = start,
};
