// Small native plugins, good ones and bad ones: CMakeLists.txt says which macros make which. The
// marks are replaced in the compiled object by the names of milestones.
#include "bootforge/plugin.h"

#ifndef VERSION
#define VERSION 4
#endif

#ifndef NO_LISTS
static const char* const kRequires[] = {"<require>", NULL};
static const char* const kProvides[] = {"<provide>", NULL};
#endif

static int entry(void) { return 0; }

#ifdef NEEDS_FUNCTION
int nobody_has_this(void);
int call(void);
int call(void) { return nobody_has_this(); }
#endif

#ifdef NEEDS_DATA
extern int nobody_has_this_either;
int* const pointer = &nobody_has_this_either;
#endif

#if defined SHORT_METADATA
BOOTFORGE_EXPORT const struct {
  int32_t api_version;
  const char* const* lists[SHORT_METADATA];
} metadata = {VERSION, {0}};
#elif defined WILD_POINTER
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {.api_version = VERSION,
                                                             .WILD_POINTER = (const void*)0x10};
#elif !defined NO_METADATA
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = VERSION,
#ifndef NO_LISTS
    .requires_ = kRequires,
    .provides = kProvides,
#endif
#ifdef FLAGS
    .required_flags = (const char* const[]){"a", NULL},
    .disabling_flags = (const char* const[]){"b", NULL},
#endif
#ifdef RUN_ONCE
    .run_once = true,
    .plugin_version = "1",
#endif
};
#endif

#if defined SHORT_OPERATIONS
BOOTFORGE_EXPORT const bootforge_entry operations = entry;
#elif !defined NO_OPERATIONS
BOOTFORGE_EXPORT const struct bootforge_operations operations = {entry, NULL};
#endif
#if defined NO_OPERATIONS
bootforge_entry const unused = entry;
#endif
