// The host's poll loop. One loop a process, used from the thread that calls Poll_Loop; only
// Poll_NotifyChange may be called from any thread.
#pragma once

using PollCallback = void (*)(void* clientData);

extern "C" {

void Poll_InitDefault();

/// Calls `callback(clientData)` each time `device` becomes readable, until it is removed.
/// Returns 0, or an error number.
int Poll_Callback(int classSet, int flags, PollCallback callback, void* clientData, int eventType,
                  int device, void* lock);

/// Removes what Poll_Callback registered with the same values. False when there is no such entry.
bool Poll_CallbackRemove(int classSet, int flags, PollCallback callback, void* clientData,
                         int eventType);

/// Serves callbacks until `*stop` is true, or until a descriptor cannot be watched, which is logged
/// at level 2. The flag is read on the calling thread.
void Poll_Loop(int classSet, bool* stop, int reserved);

/// Makes a running loop look at its stop flag.
void Poll_NotifyChange(int classSet);

}  // extern "C"
