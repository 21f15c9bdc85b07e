// Graphs drawn as text, run one step at a time.
//
//   DrawnGraph graph("a>b>d a>c>d e");
//   EXPECT_EQ(graph.runForward(), "a b c d e");
//
// "a>b" makes b wait for a; "s:3" gives a node another scheduling class than 1, where it is named
// first. Edges are linked, and nodes are scheduled, in the order of the text.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "graph/executor.h"
#include "graph/node.h"

namespace bootforge::test {

/// The names of nodes in the order in which their work was done. Any thread.
class Journal {
 public:
  void add(const std::string& name) {
    const std::lock_guard lock(mutex_);
    names_.push_back(name);
  }
  std::vector<std::string> names() const {
    const std::lock_guard lock(mutex_);
    return names_;
  }
  /// Joined with blanks.
  std::string text() const {
    std::string joined;
    for (const std::string& name : names()) joined += (joined.empty() ? "" : " ") + name;
    return joined;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> names_;
};

/// A node that notes in a journal when its work is done, in either pass.
class TestNode : public Node {
 public:
  TestNode(const std::string& name, std::uint32_t schedulingClass, Journal& journal)
      : Node(name, schedulingClass), journal_(journal) {}

  void run(Executor& executor) override { work(executor); }
  void runReverse(Executor& executor) override { work(executor); }
  std::string dotAttributes() const override { return {}; }

  /// Done by the worker, before the journal's entry.
  std::function<void(Executor&)> onRun;

 private:
  void work(Executor& executor) {
    if (onRun) onRun(executor);
    journal_.add(name());
  }

  Journal& journal_;
};

/// Does all the steps that are ready, and those that they make ready.
inline void drain(Executor& executor) {
  ScopedLock lock(graphLock);
  while (executor.runOne()) {
  }
}

/// One step; false when nothing was ready.
inline bool step(Executor& executor) {
  ScopedLock lock(graphLock);
  return executor.runOne();
}

inline Node::State stateOf(const Node& node) {
  ScopedLock lock(graphLock);
  return node.state();
}

class DrawnGraph {
 public:
  explicit DrawnGraph(std::string_view drawing) {
    TestNode* before = nullptr;
    while (!drawing.empty()) {
      const std::size_t end = drawing.find_first_of("> ");
      const std::string_view word = drawing.substr(0, end);
      if (!word.empty()) {
        TestNode& node = find(word);
        if (before != nullptr) node.addPrerequisite(*before);
        before = end != std::string_view::npos && drawing[end] == '>' ? &node : nullptr;
      }
      drawing.remove_prefix(end == std::string_view::npos ? drawing.size() : end + 1);
    }
  }

  TestNode& operator[](const std::string& name) { return *byName_.at(name); }

  /// In the order in which the drawing first names them.
  std::vector<Node*> nodes() const { return {order_.begin(), order_.end()}; }

  const Journal& journal() const { return journal_; }
  Journal& journal() { return journal_; }

  /// Schedules every node, in order, and then does all steps on this thread. The names in the order
  /// of completion; nodes that never become ready are missing.
  std::string runForward(bool randomize = false) { return run(&Node::scheduleForward, randomize); }
  std::string runReverse(bool randomize = false) { return run(&Node::scheduleReverse, randomize); }

  /// Each node's name with the number of its state: "a=5 b=1".
  std::string states() const {
    std::string text;
    for (const TestNode* node : order_) {
      const auto state = static_cast<std::uint32_t>(stateOf(*node));
      text += (text.empty() ? "" : " ") + node->name() + "=" + std::to_string(state);
    }
    return text;
  }

 private:
  TestNode& find(std::string_view word) {
    const std::size_t colon = word.find(':');
    const std::string name(word.substr(0, colon));
    const auto known = byName_.find(name);
    if (known != byName_.end()) return *known->second;
    const std::uint32_t schedulingClass =
        colon == std::string_view::npos
            ? 1
            : static_cast<std::uint32_t>(std::stoul(std::string(word.substr(colon + 1))));
    auto node = std::make_unique<TestNode>(name, schedulingClass, journal_);
    order_.push_back(node.get());
    return *(byName_[name] = std::move(node));
  }

  std::string run(void (Node::*schedule)(Executor&), bool randomize) {
    Executor executor(0, randomize);
    for (TestNode* node : order_) (node->*schedule)(executor);
    drain(executor);
    return journal_.text();
  }

  Journal journal_;
  std::vector<TestNode*> order_;
  std::map<std::string, std::unique_ptr<TestNode>> byName_;
};

}  // namespace bootforge::test
