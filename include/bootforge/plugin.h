/*
 * The interface between bootforge and a native plugin.
 *
 * A native plugin is a shared object in the plugin directory, libNAME.so or NAME.so. It exports two
 * data symbols with C linkage:
 *
 *     const struct bootforge_metadata metadata;      what the plugin is and when it runs
 *     const struct bootforge_operations operations;  what it does
 *
 * bootforge loads the object once, reads both, and unloads it; the entries are run later, each in a
 * process of its own that loads the object anew. Keep static constructors out of a plugin: they run
 * inside bootforge too.
 *
 * The layouts are a binary interface for x86-64 and other 64-bit hosts, checked below.
 */
#ifndef BOOTFORGE_PLUGIN_H
#define BOOTFORGE_PLUGIN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#define BOOTFORGE_PLUGIN_ASSERT(condition) static_assert(condition, "layout of a plugin record")
#else
#include <stdbool.h>
#define BOOTFORGE_PLUGIN_ASSERT(condition) _Static_assert(condition, "layout of a plugin record")
#endif

/* Marks a definition as one that bootforge has to see. */
#define BOOTFORGE_EXPORT __attribute__((visibility("default")))

/*
 * Every array ends in a null pointer; a null pointer in the place of an array is an empty one.
 * Names are copied.
 */
struct bootforge_metadata {
  int32_t api_version;          /* 1 to 4 */
  const char* const* requires_; /* milestones that must be reached before the plugin runs */
  const char* const* provides;  /* milestones that the plugin reaches */

  /* Read from API version 3 on. A record of version 1 or 2 may end here. */
  const char* plugin_version;         /* letters, digits and - . _ +, or null */
  bool run_once;                      /* run in one boot only, for each plugin_version */
  const char* const* required_flags;  /* boot flags that must all be given for the plugin to run */
  const char* const* disabling_flags; /* boot flags any of which keeps it from running */
};

/* An entry returns 0 on success; another value is the failure's number, of which the low byte
 * counts. */
typedef int (*bootforge_entry)(void);

struct bootforge_operations {
  bootforge_entry start;
  bootforge_entry apply_host_profile; /* null when there is none; used from API version 2 on */
};

BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_metadata, api_version) == 0);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_metadata, requires_) == 8);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_metadata, provides) == 16);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_metadata, plugin_version) == 24);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_metadata, run_once) == 32);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_metadata, required_flags) == 40);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_metadata, disabling_flags) == 48);
BOOTFORGE_PLUGIN_ASSERT(sizeof(struct bootforge_metadata) == 56);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_operations, start) == 0);
BOOTFORGE_PLUGIN_ASSERT(offsetof(struct bootforge_operations, apply_host_profile) == 8);
BOOTFORGE_PLUGIN_ASSERT(sizeof(struct bootforge_operations) == 16);

#ifdef __cplusplus
}
#endif

#undef BOOTFORGE_PLUGIN_ASSERT

#endif
