#include "tests/unit/graph/condition_calls.h"

#include <atomic>

namespace {

std::atomic<int> broadcasts = 0;
std::atomic<int> signals = 0;
std::atomic<int> waits = 0;
std::atomic<pthread_cond_t*> lastWaitedFor = nullptr;

}  // namespace

namespace bootforge::test {

int broadcastCount() { return broadcasts; }
int signalCount() { return signals; }
int waitCount() { return waits; }
pthread_cond_t* lastCondition() { return lastWaitedFor; }

}  // namespace bootforge::test

// The names are the linker's: with --wrap=X, calls of X come here and __real_X is the true one.
extern "C" {

int __real_pthread_cond_broadcast(pthread_cond_t*);
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
  ++broadcasts;
  return __real_pthread_cond_broadcast(condition);
}

int __real_pthread_cond_signal(pthread_cond_t*);
int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  ++signals;
  return __real_pthread_cond_signal(condition);
}

int __real_pthread_cond_wait(pthread_cond_t*, pthread_mutex_t*);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  lastWaitedFor = condition;
  ++waits;
  return __real_pthread_cond_wait(condition, mutex);
}

}  // extern "C"

namespace bootforge::test {

void wakeForNoReason(pthread_cond_t* condition) { __real_pthread_cond_broadcast(condition); }

}  // namespace bootforge::test
