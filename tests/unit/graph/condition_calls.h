// How often the code under test has woken somebody or gone to sleep.
#pragma once

#include <pthread.h>

namespace bootforge::test {

/// Calls of pthread_cond_broadcast(3) and pthread_cond_signal(3) in this process so far.
int broadcastCount();
int signalCount();

/// How often a thread has gone to sleep on a condition in this process so far.
int waitCount();

/// The condition that a thread has gone to sleep on last.
pthread_cond_t* lastCondition();

/// Wakes all who sleep on a condition, though nothing has happened.
void wakeForNoReason(pthread_cond_t* condition);

}  // namespace bootforge::test
