// The worker threads and their queue of ready nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "graph/ready_queue.h"
#include "util/graph_lock.h"

namespace bootforge {

class Node;

/// A fixed pool of workers that run ready nodes, one at a time each, without the graph lock. Nodes
/// put themselves into the queue. One run of a graph uses one executor; it is destroyed by the
/// thread that made it, after every wait has returned.
class Executor {
 public:
  /// Starts `threads` workers; fewer than one starts none, and nothing is ever run. With
  /// `randomize`, equally good nodes are chosen among at random. Throws Exception when the system
  /// gives no condition variable or not enough threads; those that were started have ended then.
  Executor(std::int32_t threads, bool randomize);
  /// Waits for the nodes that are running. Queued nodes are never run.
  virtual ~Executor();
  Executor(const Executor&) = delete;
  Executor& operator=(const Executor&) = delete;

  /// Appends a ready node and sees to it that a worker looks. Called by nodes that become ready.
  void enqueue(Node& node) REQUIRES(graphLock);

  /// How many nodes stand in the queue.
  std::size_t readyCount() const REQUIRES(graphLock) { return queue_.size(); }

  /// One step of a worker: runs the best node to its completion; false when none is ready. The
  /// lock, held once, is given back while the node works.
  bool runOne() REQUIRES(graphLock);

  /// The two halves of a step, for who keeps a clock of their own and does no work between them:
  /// takes the best node out of the queue, and marks a node that was taken as done, which offers
  /// whoever waited for it to the queue.
  ReadyQueue::Choice take() REQUIRES(graphLock) { return queue_.pop(); }
  void complete(Node& node) REQUIRES(graphLock);

 private:
  void work() noexcept EXCLUDES(graphLock);
  void stop() EXCLUDES(graphLock);
  void wakeWorkerIfNeeded() REQUIRES(graphLock);

  Condition workAvailable_;
  ReadyQueue queue_ GUARDED_BY(graphLock);
  std::vector<std::thread> threads_;  // touched by the owning thread only
  bool stopping_ GUARDED_BY(graphLock) = false;

  // A sleeping worker is woken only when nobody awake is going to look at the queue anyway: on a
  // chain of short nodes a wake for each would cost more than the nodes.
  std::size_t lookers_ GUARDED_BY(graphLock) = 0;   // awake (or started) and not running a node
  std::size_t sleepers_ GUARDED_BY(graphLock) = 0;  // waiting, and not yet woken
  std::size_t woken_ GUARDED_BY(graphLock) = 0;     // counted as lookers, not yet running
};

}  // namespace bootforge
