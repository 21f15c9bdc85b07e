#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "graph/barrier_registry.h"
#include "graph/graph.h"
#include "graph/priority_barrier.h"
#include "tests/double/recorder.h"
#include "tests/support/barriers.h"
#include "tests/support/own_process.h"
#include "tests/unit/graph/dot_reader.h"
#include "tests/unit/graph/graph_builder.h"
#include "tests/unit/graph/test_plugin.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string dumpOf(std::vector<Node*> nodes) {
  std::ostringstream out;
  Graph(std::move(nodes)).writeDot(out, test::barriers());
  return out.str();
}

std::string identifierOf(const Node& node) {
  return std::to_string(reinterpret_cast<std::uintptr_t>(&node));
}

TEST(Dump, OfNothingIsAnEmptyGraph) {
  inOwnProcess([] { EXPECT_EQ(dumpOf({}), "digraph g {\n}\n"); });
}

TEST(Dump, OfOnePluginHasThreeLines) {
  inOwnProcess([] {
    TestPlugin plugin("network");
    EXPECT_EQ(dumpOf({&plugin}),
              "digraph g {\n" + identifierOf(plugin) + " [label=\"network\"];\n}\n");
  });
}

//  p > net > r
TEST(Dump, WritesEachLineOfAMilestoneExactly) {
  inOwnProcess([] {
    TestPlugin r("r");
    TestPlugin p("p");
    r.require("net");
    p.provide("net");
    const std::string rId = identifierOf(r);
    const std::string pId = identifierOf(p);
    const std::string netId = identifierOf(*test::barriers().lookupBarrier("net", false));
    EXPECT_THAT(linesOf(dumpOf({&r, &p})),
                ElementsAre("digraph g {",                          //
                            rId + " [label=\"r\"];",                //
                            pId + " [label=\"p\"];",                //
                            pId + " -> " + netId + ";",             //
                            netId + " [label=\"net\" shape=box];",  //
                            netId + " -> " + rId + ";",             //
                            "}"));
  });
}

TEST(Dump, WritesBarriersInTheOrderOfTheirNamesBehindThePlugins) {
  inOwnProcess([] {
    TestPlugin b("b");
    TestPlugin a("a");
    b.require("z");
    b.require("M");
    a.provide("k");
    a.provide("z");
    const DotGraph graph = readDot(dumpOf({&b, &a}));
    EXPECT_THAT(graph.labels(), ElementsAre("b", "a", "M", "k", "z"));
    EXPECT_EQ(graph.edgeText(), "a>k a>z M>b z>b");
  });
}

TEST(Dump, WritesDependentsInTheOrderOfLinking) {
  inOwnProcess([] {
    TestPlugin a("a");
    TestPlugin b("b");
    TestPlugin c("c");
    for (TestPlugin* plugin : {&c, &a, &b}) plugin->require("net");
    EXPECT_EQ(readDot(dumpOf({&a, &b, &c})).edgeText(), "net>c net>a net>b");
  });
}

TEST(Dump, WritesABarrierThatNobodyProvides) {
  inOwnProcess([] {
    TestPlugin a("a");
    a.require("missing");
    const DotGraph graph = readDot(dumpOf({&a}));
    EXPECT_EQ(graph.attributesOf("missing"), " shape=box");
    EXPECT_EQ(graph.attributesOf("a"), "");
    EXPECT_EQ(graph.edgeText(), "missing>a");
  });
}

//  a > 10 > b > 20, and 10 > 20
TEST(Dump, WritesLevelsAsTrapeziums) {
  inOwnProcess([] {
    TestPlugin a("a", 3);
    TestPlugin b("b", 3);
    attachToPriority(test::barriers(), priorityBarrierFor(test::barriers(), 10), a);
    attachToPriority(test::barriers(), priorityBarrierFor(test::barriers(), 20), b);
    const DotGraph graph = readDot(dumpOf({&a, &b}));
    const std::string ten = priorityBarrierName(10);
    const std::string twenty = priorityBarrierName(20);
    EXPECT_THAT(graph.labels(), ElementsAre("a", "b", ten, twenty));
    EXPECT_EQ(graph.attributesOf(ten), " shape=trapezium");
    EXPECT_EQ(graph.attributesOf(twenty), " shape=trapezium");
    EXPECT_EQ(graph.edgeText(),
              "a>" + ten + " b>" + twenty + " " + ten + ">" + twenty + " " + ten + ">b");
  });
}

TEST(Dump, WritesNamesAsTheyAre) {
  inOwnProcess([] {
    TestPlugin plugin("a \"quoted\" \\n];");
    plugin.require("the \"net\"");
    const std::string text = dumpOf({&plugin});
    EXPECT_NE(text.find(identifierOf(plugin) + " [label=\"a \"quoted\" \\n];\"];\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find(" [label=\"the \"net\"\" shape=box];\n"), std::string::npos) << text;
  });
}

TEST(Dump, WritesEveryDependencyOfAnyGraphOnce) {
  inOwnProcess([] {
    DrawnGraph drawn("a>b>d a>c>d e");
    const DotGraph graph = readDot(dumpOf(drawn.nodes()));
    EXPECT_THAT(graph.labels(), ElementsAre("a", "b", "d", "c", "e"));
    EXPECT_EQ(graph.edgeText(), "a>b a>c b>d c>d");
  });
}

TEST(Dump, RunsNothing) {
  inOwnProcess([] {
    doubles::reset();
    TestPlugin plugin("a");
    bool started = false;
    plugin.onStart = [&started] { started = true; };
    plugin.require("missing");
    dumpOf({&plugin});
    EXPECT_FALSE(started);
    EXPECT_EQ(stateOf(plugin), Node::State::Idle);
    EXPECT_THAT(doubles::records(), IsEmpty());
  });
}

/// Notes what has been written whenever the stream is flushed.
class FlushRecorder : public std::stringbuf {
 public:
  std::vector<std::string> flushed;

 protected:
  int sync() override {
    flushed.push_back(str());
    str("");
    return 0;
  }
};

TEST(Dump, IsFlushedAfterEveryLine) {
  inOwnProcess([] {
    DrawnGraph drawn("a>b");
    FlushRecorder buffer;
    std::ostream out(&buffer);
    Graph(drawn.nodes()).writeDot(out, test::barriers());
    EXPECT_EQ(buffer.flushed.size(), 5U);
    for (const std::string& line : buffer.flushed) {
      EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
      EXPECT_TRUE(line.ends_with('\n')) << line;
    }
  });
}

}  // namespace
}  // namespace bootforge::test
