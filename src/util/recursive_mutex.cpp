#include "util/recursive_mutex.h"

#include <cassert>

#include "util/exception.h"

namespace bootforge {

Condition::Condition(const char* failure) {
  if (pthread_cond_init(&condition_, nullptr) != 0) throw Exception(failure);
}

void Condition::wait(RecursiveMutex& mutex) {
  assert(mutex.depth_ == 1);
  mutex.depth_ = 0;
  pthread_cond_wait(&condition_, &mutex.mutex_);
  mutex.depth_ = 1;
}

}  // namespace bootforge
