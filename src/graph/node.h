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
// Two things keep a large graph cheap. A node remembers how far into its neighbours it has found
// everything finished, so a barrier with 100,000 providers is not walked 100,000 times over. And
// nothing recurses: a chain of a million nodes is walked with a stack of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

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

  using List = std::vector<Node*>;

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
  const List& prerequisites() const REQUIRES(graphLock) { return prerequisites_; }
  const List& dependents() const REQUIRES(graphLock) { return dependents_; }
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

  // What one direction of travel looks at. `visited` neighbours have been started if they were
  // idle; `finished` neighbours, counted from the front, were all found finished.
  struct Progress {
    std::uint32_t visited = 0;
    std::uint32_t finished = 0;
  };
  struct Pass;
  static const Pass kForward;
  static const Pass kReverse;

  /// The pass that a queued node is to be run in.
  const Pass& queuedPass() const REQUIRES(graphLock);
  /// Does the node's work, without the lock.
  void perform(const Pass& pass, Executor& executor) EXCLUDES(graphLock);
  /// Marks the node as done, offers its waiting neighbours to the queue and wakes its waiters.
  void complete(const Pass& pass, Executor& executor) REQUIRES(graphLock);

  void schedule(const Pass& pass, Executor& executor) REQUIRES(graphLock);
  bool enter(const Pass& pass) REQUIRES(graphLock);
  Node* nextIdle(const Pass& pass) REQUIRES(graphLock);
  bool isReady(const Pass& pass) REQUIRES(graphLock);
  void queue(const Pass& pass, Executor& executor) REQUIRES(graphLock);
  void wait(State done) EXCLUDES(graphLock);
  static std::int32_t longestChain(Node& start, List Node::*next, std::int32_t Node::*length)
      REQUIRES(graphLock);

  static std::size_t destroyed_ GUARDED_BY(graphLock);

  // Constant after construction.
  const std::uint32_t schedulingClass_;
  // Guarded by the graph lock; what a pass touches stands together.
  State state_ GUARDED_BY(graphLock) = State::Idle;
  std::int32_t height_ GUARDED_BY(graphLock) = kNotComputed;
  std::int32_t depth_ GUARDED_BY(graphLock) = kNotComputed;
  Progress forward_ GUARDED_BY(graphLock);
  Progress reverse_ GUARDED_BY(graphLock);
  List prerequisites_ GUARDED_BY(graphLock);
  List dependents_ GUARDED_BY(graphLock);
  // Notified, under the lock, whenever the node finishes a pass.
  Condition finished_;
  const std::string name_;

  static constexpr std::int32_t kNotComputed = -1;
  static constexpr std::int32_t kBeingComputed = -2;
};

}  // namespace bootforge
