#include "graph/executor.h"

#include <exception>

#include "graph/node.h"
#include "util/exception.h"

namespace bootforge {

Executor::Executor(std::int32_t threads, bool randomize)
    : workAvailable_("Condition variable for Executor could not be initialized"),
      queue_(randomize) {
  const std::size_t wanted = threads > 0 ? static_cast<std::size_t>(threads) : 0;
  {
    ScopedLock lock(graphLock);
    lookers_ = wanted;
  }
  threads_.reserve(wanted);
  try {
    while (threads_.size() < wanted) threads_.emplace_back([this] { work(); });
  } catch (const std::exception&) {  // no thread, or no memory for one
    stop();
    throw Exception("Could not create enough execution threads. (" +
                    std::to_string(threads_.size()) + " created, " + std::to_string(threads) +
                    "requested)");
  }
}

Executor::~Executor() { stop(); }

void Executor::stop() {
  ScopedLock lock(graphLock);
  stopping_ = true;
  workAvailable_.notifyAll();
  lock.release();
  for (std::thread& thread : threads_) thread.join();
}

void Executor::enqueue(Node& node) {
  queue_.push(node);
  wakeWorkerIfNeeded();
}

void Executor::wakeWorkerIfNeeded() {
  if (queue_.empty() || lookers_ > 0 || sleepers_ == 0) return;
  --sleepers_;
  ++lookers_;
  ++woken_;
  workAvailable_.notifyOne();
}

bool Executor::runOne() {
  Node* const node = queue_.pop().node;
  if (node == nullptr) return false;
  --lookers_;
  wakeWorkerIfNeeded();
  const Node::Pass& pass = node->queuedPass();
  graphLock.unlock();
  node->perform(pass, *this);
  graphLock.lock();
  ++lookers_;
  node->complete(pass, *this);
  return true;
}

void Executor::complete(Node& node) { node.complete(node.queuedPass(), *this); }

void Executor::work() noexcept {
  ScopedLock lock(graphLock);
  while (!stopping_) {
    if (runOne()) continue;
    --lookers_;
    ++sleepers_;
    workAvailable_.wait(graphLock);
    // Woken by name, or for no reason: then it counts itself in.
    if (woken_ > 0) {
      --woken_;
    } else {
      --sleepers_;
      ++lookers_;
    }
  }
}

}  // namespace bootforge
