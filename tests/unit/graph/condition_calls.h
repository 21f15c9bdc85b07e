// How often the code under test has woken somebody.
#pragma once

namespace bootforge::test {

/// Calls of pthread_cond_broadcast(3) and pthread_cond_signal(3) in this process so far.
int broadcastCount();
int signalCount();

}  // namespace bootforge::test
