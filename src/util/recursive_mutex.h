// The annotated lock and the condition that goes with it.
#pragma once

#include <pthread.h>

#include "util/thread_annotations.h"

namespace bootforge {

/// A lock that its owner may take again. Statically initialised: usable before any constructor ran.
class CAPABILITY("mutex") RecursiveMutex {
 public:
  constexpr RecursiveMutex() = default;
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;

  /// Waits for the lock; the owner gets it at once. pthread_mutex_lock(3).
  void lock() ACQUIRE() {
    pthread_mutex_lock(&mutex_);
    ++depth_;
  }

  /// Gives back one lock().
  void unlock() RELEASE() {
    --depth_;
    pthread_mutex_unlock(&mutex_);
  }

 private:
  friend class Condition;

  pthread_mutex_t mutex_ = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  int depth_ = 0;  // how often the owner holds the lock; touched by the owner only
};

/// A condition variable that is used with a RecursiveMutex.
class Condition {
 public:
  /// Throws Exception with `failure` when the system cannot make a condition variable.
  explicit Condition(const char* failure);
  ~Condition() { pthread_cond_destroy(&condition_); }
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  /// Lets go of `mutex`, sleeps until notified (or for no reason) and takes it again. The caller
  /// must hold it exactly once: a wait gives back one level only, and would otherwise sleep on with
  /// the lock held.
  void wait(RecursiveMutex& mutex) REQUIRES(mutex);

  void notifyOne() { pthread_cond_signal(&condition_); }
  void notifyAll() { pthread_cond_broadcast(&condition_); }

 private:
  pthread_cond_t condition_;
};

/// Holds a lock for a scope, or until release().
class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(RecursiveMutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~ScopedLock() RELEASE() {
    if (held_) mutex_.unlock();
  }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

  /// Gives the lock back before the scope ends.
  void release() RELEASE() {
    held_ = false;
    mutex_.unlock();
  }

 private:
  RecursiveMutex& mutex_;
  bool held_ = true;
};

}  // namespace bootforge
