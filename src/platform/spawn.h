// The host's spawn library. Statuses are 0 for success, otherwise an error number. Any thread.
#pragma once

#include <sys/types.h>

#include <cstddef>

struct HvkuserSpawnFileActions;

extern "C" {

/// New file actions with room for so many entries; SpawnFileActionsDestroy ends them.
int HvkuserCompat_SpawnFileActionsInit(HvkuserSpawnFileActions** actions, int room);
int HvkuserCompat_SpawnFileActionsAddDup2(HvkuserSpawnFileActions* actions, int from, int to);
void HvkuserCompat_SpawnFileActionsDestroy(HvkuserSpawnFileActions* actions);

/// Starts a program with the descriptors of the file actions and no others, and with default signal
/// dispositions. `attributes` is null.
int HvkuserCompat_Spawn(pid_t* child, const char* path, HvkuserSpawnFileActions* actions,
                        const void* attributes, char* const arguments[], char* const environment[]);

/// Writes the text of a status, cut to the buffer's size, and returns the buffer.
const char* HvkuserStatus_CodeToString(int status, char* buffer, std::size_t size);

}  // extern "C"
