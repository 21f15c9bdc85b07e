// A vertex of the boot graph, and the life that it leads.
//
// A node waits for its prerequisites and is waited for by its dependents. Plugins and milestones
// (barriers) are nodes alike. A graph is run once, in one of two passes:
//
//   forward (boot)            a node runs after all of its prerequisites;
//   reverse (stop daemons)    a node runs after all of its dependents.
//
// Readiness is pushed from node to node; nobody walks the graph in search of work. A pass looks the
// same in both directions, so the words below name the forward states, with the reverse ones
// behind:
//
//            scheduleForward,                last neighbour            a worker has
//            something unfinished            has finished              run the node
//    Idle ------------------------> ForwardWaiting --> ForwardQueued ----------------> ForwardDone
//      \                            ReverseWaiting     ReverseQueued                   ReverseDone
//       \________________________________________________/
//         scheduleForward, nothing unfinished
//
//   Idle            set by the constructor. The node is being linked (main thread).
//   ForwardWaiting  set by scheduleForward, called by the main thread for every plugin and from
//                   there for every idle ancestor. The node stands in no queue.
//   ForwardQueued   set by scheduleForward when every prerequisite counts as finished: by the main
//                   thread, or by the worker that has just finished the last of them. The node
//                   stands in the executor's queue, and keeps this state while a worker runs it.
//   ForwardDone     set by the worker that ran it, which then offers each waiting dependent to the
//                   queue and wakes whoever waits; or by markForwardDone, for a plugin that is left
//                   out, which releases nobody: its dependents see it when they are looked at.
//
// A node that has finished either pass counts as finished for both. Nothing returns a node to Idle.
// The members of a cycle stay in ForwardWaiting, and their waiters wait.
//
// Every change of state and every walk of a list is made under the graph lock, whichever thread
// makes it; run() and runReverse() are the only work done without it. They must not throw: nothing
// on a worker's thread catches, so the process ends.
//
// Three things keep a large graph cheap. A node counts those before it that have not finished when
// it is scheduled, and each that finishes counts itself off: lists are walked once, and a barrier
// with 100,000 providers is not walked 100,000 times over. Nothing recurses: a chain of a million
// nodes is walked with a stack of its own. And what the forward pass touches of a node fills one
// cache line.
#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "util/graph_lock.h"

namespace bootforge {

class Executor;

class Node {
 public:
  enum class State : std::uint32_t {
    Idle = 0,
    ForwardWaiting = 1,
    ReverseWaiting = 2,
    ForwardQueued = 3,
    ReverseQueued = 4,
    ForwardDone = 5,
    ReverseDone = 6,
  };

  /// In the node itself while it is short, as most are: who is next is known without a look
  /// elsewhere.
  using List = boost::container::small_vector<Node*, 2>;

  /// An idle node without neighbours. Among ready nodes the lowest scheduling class runs first.
  /// Throws Exception when no condition variable can be had.
  Node(std::string name, std::uint32_t schedulingClass);
  /// Takes the node out of its neighbours' lists, so that nothing points at a node that is gone.
  virtual ~Node();
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  /// The forward work. Called by a worker without the graph lock; must not throw.
  virtual void run(Executor& executor) = 0;
  /// The reverse work: none, unless a kind has some. As run().
  virtual void runReverse(Executor& executor);
  /// What the dump adds inside the node's bracket.
  virtual std::string dotAttributes() const = 0;

  const std::string& name() const { return name_; }
  std::uint32_t schedulingClass() const { return schedulingClass_; }
  const List& prerequisites() const REQUIRES(graphLock) { return reverse_.after; }
  const List& dependents() const REQUIRES(graphLock) { return forward_.after; }
  State state() const REQUIRES(graphLock) { return state_; }

  /// This node waits for `other`. Lists keep the order of these calls. Takes the graph lock.
  void addPrerequisite(Node& other);
  /// `other` waits for this node. Takes the graph lock.
  void addDependent(Node& other);

  /// Makes the node take part in a pass, and with it every idle node that it waits for. Nothing
  /// when it is queued or done in that pass already. Takes the graph lock.
  void scheduleForward(Executor& executor);
  void scheduleReverse(Executor& executor);

  /// Sleeps until the node is done in that pass, without limit. Takes the graph lock, which the
  /// caller must not hold.
  void waitForward() EXCLUDES(graphLock);
  void waitReverse() EXCLUDES(graphLock);

  /// Marks the node as done without running it, offering or waking anybody. Takes the graph lock.
  void markForwardDone();

  /// How many nodes are gone: whoever remembers what stands in a list compares it.
  static std::size_t destroyedCount() REQUIRES(graphLock) { return destroyed_; }

  /// The second key of the executor's choice: the longest chain of nodes that still waits behind
  /// this one in its pass. Computed on first use.
  std::int32_t schedulingWeight() REQUIRES(graphLock);

  /// Writes the node's line and its outgoing edges in the dot language, flushing after each line.
  /// Takes the graph lock for the edges.
  void writeDot(std::ostream& out) const;

 private:
  friend class Executor;
  friend class Graph;

  // What one pass keeps of a node.
  struct Course {
    // Those that wait for the node in this pass. Who comes before it stands in the other course.
    List after;
    // Nodes on the longest chain of them; see schedulingWeight().
    std::int32_t longest = kNotComputed;
    // How many of those before the node have not finished: counted when it is scheduled, and again
    // after a change that nobody counts off.
    std::int32_t unfinished = kNotCounted;
  };
  static constexpr std::int32_t kNotCounted = -1;
  static constexpr std::int32_t kNotComputed = -1;
  static constexpr std::int32_t kBeingComputed = -2;

  // One direction of travel: its course and the other one, and the states on its way.
  struct Pass {
    Course Node::*course;
    Course Node::*opposite;
    State waiting;
    State queued;
    State done;

    bool isFinished(State state) const {
      return state != State::Idle && state != waiting && state != queued;
    }
  };
  static const Pass kForward;
  static const Pass kReverse;

  /// As scheduleForward() and scheduleReverse().
  void schedule(const Pass& pass, Executor& executor) REQUIRES(graphLock);
  /// As waitForward() and waitReverse().
  void wait(const Pass& pass) REQUIRES(graphLock);

  /// The pass that a queued node is to be run in.
  const Pass& queuedPass() const REQUIRES(graphLock);
  /// Does the node's work, without the lock.
  void perform(const Pass& pass, Executor& executor) EXCLUDES(graphLock);
  /// Marks the node as done, offers its waiting neighbours to the queue and wakes its waiters.
  void complete(const Pass& pass, Executor& executor) REQUIRES(graphLock);

  bool enter(const Pass& pass) REQUIRES(graphLock);
  void countUnfinished(const Pass& pass, Executor& executor) REQUIRES(graphLock);
  void queue(const Pass& pass, Executor& executor) REQUIRES(graphLock);
  void forgetCountsAround() REQUIRES(graphLock);
  std::int32_t longestChain(const Pass& pass) REQUIRES(graphLock);

  static std::size_t destroyed_ GUARDED_BY(graphLock);

  // Guarded by the graph lock, but for the class, which is constant.
  const std::uint32_t schedulingClass_;
  State state_ GUARDED_BY(graphLock) = State::Idle;
  Course forward_ GUARDED_BY(graphLock);
  // Threads that sleep on finished_.
  std::uint32_t waiters_ GUARDED_BY(graphLock) = 0;
  // Up to here the forward pass comes.
  Course reverse_ GUARDED_BY(graphLock);
  // Notified, under the lock, when the node finishes a pass and somebody waits.
  Condition finished_;
  const std::string name_;
};

}  // namespace bootforge
