#include "tests/unit/graph/condition_calls.h"

#include <pthread.h>

#include <atomic>

namespace {

std::atomic<int> broadcasts = 0;
std::atomic<int> signals = 0;

}  // namespace

namespace bootforge::test {

int broadcastCount() { return broadcasts; }
int signalCount() { return signals; }

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

}  // extern "C"
