#include "graph/node.h"

#include <algorithm>
#include <ostream>
#include <utility>
#include <vector>

#include "graph/executor.h"

namespace bootforge {

constinit const Node::Pass Node::kForward = {
    &Node::forward_,      &Node::reverse_,    State::ForwardWaiting,
    State::ForwardQueued, State::ForwardDone,
};
constinit const Node::Pass Node::kReverse = {
    &Node::reverse_,      &Node::forward_,    State::ReverseWaiting,
    State::ReverseQueued, State::ReverseDone,
};

std::size_t Node::destroyed_ = 0;

Node::Node(std::string name, std::uint32_t schedulingClass)
    : schedulingClass_(schedulingClass),
      finished_("Condition variable for Node could not be initialized"),
      name_(std::move(name)) {}

Node::~Node() {
  ScopedLock lock(graphLock);
  ++destroyed_;
  forgetCountsAround();
  // Nodes are taken apart in the reverse order of their making, so the search begins at the end.
  const auto forget = [this](List& list) {
    const auto entry = std::find(list.rbegin(), list.rend(), this);
    if (entry != list.rend()) list.erase(std::next(entry).base());
  };
  for (Node* node : reverse_.after) {
    if (node != this) forget(node->forward_.after);
  }
  for (Node* node : forward_.after) {
    if (node != this) forget(node->reverse_.after);
  }
}

void Node::runReverse(Executor& /*executor*/) {}

void Node::addPrerequisite(Node& other) {
  ScopedLock lock(graphLock);
  other.forward_.longest = kNotComputed;
  other.reverse_.unfinished = kNotCounted;
  other.forward_.after.push_back(this);
  reverse_.longest = kNotComputed;
  forward_.unfinished = kNotCounted;
  reverse_.after.push_back(&other);
}

void Node::addDependent(Node& other) { other.addPrerequisite(*this); }

void Node::scheduleForward(Executor& executor) {
  ScopedLock lock(graphLock);
  schedule(kForward, executor);
}

void Node::scheduleReverse(Executor& executor) {
  ScopedLock lock(graphLock);
  schedule(kReverse, executor);
}

void Node::waitForward() {
  ScopedLock lock(graphLock);
  wait(kForward);
}

void Node::waitReverse() {
  ScopedLock lock(graphLock);
  wait(kReverse);
}

void Node::wait(const Pass& pass) {
  if (state_ == pass.done) return;
  ++waiters_;
  while (state_ != pass.done) finished_.wait(graphLock);
  --waiters_;
}

void Node::markForwardDone() {
  ScopedLock lock(graphLock);
  forgetCountsAround();
  state_ = State::ForwardDone;
}

const Node::Pass& Node::queuedPass() const {
  return state_ == State::ForwardQueued ? kForward : kReverse;
}

void Node::perform(const Pass& pass, Executor& executor) {
  &pass == &kForward ? run(executor) : runReverse(executor);
}

void Node::complete(const Pass& pass, Executor& executor) {
  // Scheduled for the other pass while it ran: nobody has counted on this.
  if (state_ != pass.queued) forgetCountsAround();
  state_ = pass.done;
  const List& after = (this->*pass.course).after;
  bool anyReady = false;
  for (Node* node : after) {
    std::int32_t& unfinished = (node->*pass.course).unfinished;
    if (unfinished > 0) --unfinished;
    if (unfinished <= 0) anyReady = true;
  }
  // Only now, because who waits for this node twice is ready where the list has it first.
  if (anyReady) {
    for (Node* node : after) {
      if (node->state_ == pass.waiting) node->schedule(pass, executor);
    }
  }
  if (waiters_ > 0) finished_.notifyAll();
}

void Node::schedule(const Pass& pass, Executor& executor) {
  if (!enter(pass)) return;
  const std::int32_t unfinished = (this->*pass.course).unfinished;
  if (unfinished == kNotCounted) {
    countUnfinished(pass, executor);
  } else if (unfinished == 0) {
    queue(pass, executor);
  }
}

bool Node::enter(const Pass& pass) {
  if (state_ == pass.queued || state_ == pass.done) return false;
  if (state_ == State::Idle) state_ = pass.waiting;
  return true;
}

// Depth first, neighbours in list order, with a stack of its own: an idle one is entered and looked
// at before the next, and a node is queued when all before it have been looked at, exactly as a
// recursive walk would.
void Node::countUnfinished(const Pass& pass, Executor& executor) {
  struct Frame {
    Node* node;
    std::size_t index;  // of the next neighbour to be looked at
    std::int32_t unfinished;
  };
  std::vector<Frame> interrupted;
  Frame frame{this, 0, 0};
  for (;;) {
    const List& before = (frame.node->*pass.opposite).after;
    Node* idle = nullptr;
    while (frame.index < before.size() && idle == nullptr) {
      Node* const node = before[frame.index++];
      if (pass.isFinished(node->state_)) continue;
      ++frame.unfinished;
      if (node->state_ == State::Idle) idle = node;
    }
    if (idle != nullptr) {
      interrupted.push_back(frame);
      idle->enter(pass);
      frame = {idle, 0, 0};
      continue;
    }
    (frame.node->*pass.course).unfinished = frame.unfinished;
    if (frame.unfinished == 0) frame.node->queue(pass, executor);
    if (interrupted.empty()) return;
    frame = interrupted.back();
    interrupted.pop_back();
  }
}

void Node::queue(const Pass& pass, Executor& executor) {
  // From a state of the other pass: whoever counted the node as finished here, or as unfinished
  // there, counts anew.
  if (state_ != pass.waiting) forgetCountsAround();
  state_ = pass.queued;
  executor.enqueue(*this);
}

void Node::forgetCountsAround() {
  for (Node* node : forward_.after) node->forward_.unfinished = kNotCounted;
  for (Node* node : reverse_.after) node->reverse_.unfinished = kNotCounted;
}

std::int32_t Node::schedulingWeight() { return longestChain(queuedPass()); }

std::int32_t Node::longestChain(const Pass& pass) {
  if ((this->*pass.course).longest != kNotComputed) return (this->*pass.course).longest;
  struct Frame {
    Node* node;
    std::size_t index;
    std::int32_t longest;
  };
  std::vector<Frame> frames;
  Frame frame{this, 0, 0};
  for (;;) {
    Course& course = frame.node->*pass.course;
    course.longest = kBeingComputed;
    Node* unknown = nullptr;
    for (; frame.index < course.after.size(); ++frame.index) {
      Node* const node = course.after[frame.index];
      const std::int32_t known = (node->*pass.course).longest;
      // A neighbour that is being computed closes a cycle. Its members never run, so the edge back
      // may count for nothing.
      if (known == kBeingComputed) continue;
      if (known == kNotComputed) {
        unknown = node;
        break;
      }
      frame.longest = std::max(frame.longest, known + 1);
    }
    if (unknown != nullptr) {
      frames.push_back(frame);
      frame = {unknown, 0, 0};
      continue;
    }
    course.longest = frame.longest;
    if (frames.empty()) return frame.longest;
    frame = frames.back();
    frames.pop_back();
  }
}

void Node::writeDot(std::ostream& out) const {
  const auto identifier = [](const Node* node) { return reinterpret_cast<std::uintptr_t>(node); };
  out << identifier(this) << " [label=\"" << name_ << '"' << dotAttributes() << "];" << std::endl;
  ScopedLock lock(graphLock);
  for (const Node* node : forward_.after) {
    out << identifier(this) << " -> " << identifier(node) << ';' << std::endl;
  }
}

}  // namespace bootforge
