#include "platform/spawn.h"

#include <spawn.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

struct HvkuserSpawnFileActions {
  posix_spawn_file_actions_t actions;
  int room;
  int highest;  // descriptor that the child is given
  bool closed;  // whether those beyond it are seen to
};

extern "C" {

int HvkuserCompat_SpawnFileActionsInit(HvkuserSpawnFileActions** actions, int room) {
  auto* const made = new (std::nothrow) HvkuserSpawnFileActions{{}, room, -1, false};
  if (made == nullptr) return ENOMEM;
  if (const int error = posix_spawn_file_actions_init(&made->actions); error != 0) {
    delete made;
    return error;
  }
  *actions = made;
  return 0;
}

int HvkuserCompat_SpawnFileActionsAddDup2(HvkuserSpawnFileActions* actions, int from, int to) {
  if (actions->room == 0) return ENOSPC;
  const int error = posix_spawn_file_actions_adddup2(&actions->actions, from, to);
  if (error == 0) {
    --actions->room;
    if (to > actions->highest) actions->highest = to;
  }
  return error;
}

void HvkuserCompat_SpawnFileActionsDestroy(HvkuserSpawnFileActions* actions) {
  posix_spawn_file_actions_destroy(&actions->actions);
  delete actions;
}

int HvkuserCompat_Spawn(pid_t* child, const char* path, HvkuserSpawnFileActions* actions,
                        const void* /*attributes*/, char* const arguments[],
                        char* const environment[]) {
  if (!actions->closed) {
    const int error =
        posix_spawn_file_actions_addclosefrom_np(&actions->actions, actions->highest + 1);
    if (error != 0) return error;
    actions->closed = true;
  }
  posix_spawnattr_t attributes;
  if (const int error = posix_spawnattr_init(&attributes); error != 0) return error;
  sigset_t all;
  sigset_t none;
  std::memset(&all, 0xff, sizeof all);  // sigfillset(3) leaves out those of the C library
  sigemptyset(&none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  const int error =
      posix_spawn(child, path, &actions->actions, &attributes, arguments, environment);
  posix_spawnattr_destroy(&attributes);
  return error;
}

const char* HvkuserStatus_CodeToString(int status, char* buffer, std::size_t size) {
  char text[64];
  std::snprintf(buffer, size, "%s", strerror_r(status, text, sizeof text));
  return buffer;
}

}  // extern "C"
