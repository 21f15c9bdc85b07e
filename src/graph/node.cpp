#include "graph/node.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "graph/executor.h"

namespace bootforge {

// One direction of travel: whom a node waits for, who waits for it, and the states on its way.
struct Node::Pass {
  List Node::*before;
  List Node::*after;
  Progress Node::*progress;
  State waiting;
  State queued;
  State done;
  void (Node::*work)(Executor&);

  bool isFinished(State state) const {
    return state != State::Idle && state != waiting && state != queued;
  }
};

constinit const Node::Pass Node::kForward = {
    &Node::prerequisites_, &Node::dependents_, &Node::forward_, State::ForwardWaiting,
    State::ForwardQueued,  State::ForwardDone, &Node::run,
};
constinit const Node::Pass Node::kReverse = {
    &Node::dependents_,   &Node::prerequisites_, &Node::reverse_,   State::ReverseWaiting,
    State::ReverseQueued, State::ReverseDone,    &Node::runReverse,
};

std::size_t Node::destroyed_ = 0;

Node::Node(std::string name, std::uint32_t schedulingClass)
    : schedulingClass_(schedulingClass),
      finished_("Condition variable for Node could not be initialized"),
      name_(std::move(name)) {}

Node::~Node() {
  ScopedLock lock(graphLock);
  ++destroyed_;
  // Nodes are taken apart in the reverse order of their making, so the search begins at the end.
  const auto forget = [this](List& list) {
    const auto entry = std::find(list.rbegin(), list.rend(), this);
    if (entry != list.rend()) list.erase(std::next(entry).base());
  };
  for (Node* node : prerequisites_) {
    if (node == this) continue;
    forget(node->dependents_);
    node->reverse_ = {};
  }
  for (Node* node : dependents_) {
    if (node == this) continue;
    forget(node->prerequisites_);
    node->forward_ = {};
  }
}

void Node::runReverse(Executor& /*executor*/) {}

void Node::addPrerequisite(Node& other) {
  ScopedLock lock(graphLock);
  other.height_ = kNotComputed;
  depth_ = kNotComputed;
  other.dependents_.push_back(this);
  prerequisites_.push_back(&other);
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

void Node::waitForward() { wait(State::ForwardDone); }

void Node::waitReverse() { wait(State::ReverseDone); }

void Node::wait(State done) {
  ScopedLock lock(graphLock);
  while (state_ != done) finished_.wait(graphLock);
}

void Node::markForwardDone() {
  ScopedLock lock(graphLock);
  state_ = State::ForwardDone;
}

const Node::Pass& Node::queuedPass() const {
  return state_ == State::ForwardQueued ? kForward : kReverse;
}

void Node::perform(const Pass& pass, Executor& executor) { (this->*pass.work)(executor); }

void Node::complete(const Pass& pass, Executor& executor) {
  state_ = pass.done;
  for (Node* node : this->*pass.after) {
    if (node->state_ == pass.waiting) node->schedule(pass, executor);
  }
  finished_.notifyAll();
}

// Depth first, neighbours in list order, with a stack of its own: a node is queued when all that it
// waits for has been looked at, exactly as a recursive walk would.
void Node::schedule(const Pass& pass, Executor& executor) {
  if (!enter(pass)) return;
  List interrupted;
  Node* node = this;
  for (;;) {
    if (Node* idle = node->nextIdle(pass)) {
      interrupted.push_back(node);
      node = idle;
      node->enter(pass);
      continue;
    }
    if (node->isReady(pass)) node->queue(pass, executor);
    if (interrupted.empty()) return;
    node = interrupted.back();
    interrupted.pop_back();
  }
}

bool Node::enter(const Pass& pass) {
  if (state_ == pass.queued || state_ == pass.done) return false;
  if (state_ == State::Idle) state_ = pass.waiting;
  return true;
}

Node* Node::nextIdle(const Pass& pass) {
  const List& before = this->*pass.before;
  Progress& progress = this->*pass.progress;
  while (progress.visited < before.size()) {
    Node* const node = before[progress.visited++];
    if (node->state_ == State::Idle) return node;
  }
  return nullptr;
}

bool Node::isReady(const Pass& pass) {
  const List& before = this->*pass.before;
  Progress& progress = this->*pass.progress;
  while (progress.finished < before.size() && pass.isFinished(before[progress.finished]->state_)) {
    ++progress.finished;
  }
  return progress.finished == before.size();
}

void Node::queue(const Pass& pass, Executor& executor) {
  if (pass.isFinished(state_)) {
    // The node was done in the other pass and takes part in this one too: whoever had counted it as
    // finished counts anew.
    for (Node* node : this->*pass.after) (node->*pass.progress).finished = 0;
  }
  state_ = pass.queued;
  executor.enqueue(*this);
}

std::int32_t Node::schedulingWeight() {
  return state_ == State::ForwardQueued ? longestChain(*this, &Node::dependents_, &Node::height_)
                                        : longestChain(*this, &Node::prerequisites_, &Node::depth_);
}

std::int32_t Node::longestChain(Node& start, List Node::*next, std::int32_t Node::*length) {
  if (start.*length >= 0) return start.*length;
  struct Frame {
    Node* node;
    std::size_t index;
    std::int32_t longest;
  };
  std::vector<Frame> frames;
  Frame frame{&start, 0, 0};
  for (;;) {
    frame.node->*length = kBeingComputed;
    const List& list = frame.node->*next;
    Node* unknown = nullptr;
    for (; frame.index < list.size(); ++frame.index) {
      const std::int32_t known = list[frame.index]->*length;
      // A neighbour that is being computed closes a cycle. Its members never run, so the edge back
      // may count for nothing.
      if (known == kBeingComputed) continue;
      if (known == kNotComputed) {
        unknown = list[frame.index];
        break;
      }
      frame.longest = std::max(frame.longest, known + 1);
    }
    if (unknown != nullptr) {
      frames.push_back(frame);
      frame = {unknown, 0, 0};
      continue;
    }
    frame.node->*length = frame.longest;
    if (frames.empty()) return frame.longest;
    frame = frames.back();
    frames.pop_back();
  }
}

void Node::writeDot(std::ostream& out) const {
  const auto identifier = [](const Node* node) { return reinterpret_cast<std::uintptr_t>(node); };
  out << identifier(this) << " [label=\"" << name_ << '"' << dotAttributes() << "];" << std::endl;
  ScopedLock lock(graphLock);
  for (const Node* node : dependents_) {
    out << identifier(this) << " -> " << identifier(node) << ';' << std::endl;
  }
}

}  // namespace bootforge
