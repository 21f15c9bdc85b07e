// The order of a boot, why something waits, and pictures of the graph.

#include "analyze/planning/plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "analyze/planning/drawing.h"
#include "analyze/planning/why.h"
#include "tests/unit/analyze/image_fixture.h"

namespace bootforge::analyze::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class PlanningTest : public ImageTest {
 protected:
  /// Each as "NAME", "NAME < REQUIRED ..." and "> PROVIDED ...", blanks between all.
  void plugins(const std::vector<std::string>& all) {
    std::vector<std::string> files;
    for (const std::string& line : all) {
      std::istringstream words(line);
      std::string name;
      words >> name;
      std::string lists[2];
      std::string* list = nullptr;
      for (std::string word; words >> word;) {
        if (word == "<") {
          list = &lists[0];
        } else if (word == ">") {
          list = &lists[1];
        } else {
          *list += (list->empty() ? "\"" : ",\"") + word + '"';
        }
      }
      putPlugin(name + ".json",
                Text{.required = '[' + lists[0] + ']', .provided = '[' + lists[1] + ']'});
      files.push_back(name + ".json");
    }
    readInThisOrder(files);
  }
};

class PlanTest : public PlanningTest {
 protected:
  void scripts(const std::string& list) {
    options_.daemons = true;
    options_.initList = list;
  }
  /// Lines "KIND NAME CLASS/WEIGHT", with "+N" where N others were as good.
  std::vector<std::string> order(bool reverse = false) {
    Image image(options_);
    const WaitGraph graph(image);
    const Plan plan = planBoot(image, graph, reverse);
    blocked_ = namesOf(graph, plan.blocked);
    std::vector<std::string> lines;
    for (const Step& step : plan.order) {
      lines.push_back(std::string(nameOf(graph.kind(step.node))) + ' ' + graph.name(step.node) +
                      ' ' + std::to_string(step.schedulingClass) + '/' +
                      std::to_string(step.weight) +
                      (step.tied == 0 ? "" : " +" + std::to_string(step.tied)));
    }
    return lines;
  }

  std::vector<std::string> blocked_;
};

TEST_F(PlanTest, HeaviestGoesFirstAndEqualsInTheFoldersOrder) {
  plugins({"c", "b > x", "a > y", "d < x y"});
  const std::vector<std::string> lines = order();
  std::vector<std::string> names;
  for (const std::string& line : lines) names.push_back(line.substr(0, line.find('/')));
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_THAT(lines[0], testing::AllOf(HasSubstr("plugin b "), HasSubstr(" +1")));
  EXPECT_THAT(blocked_, IsEmpty());
}

TEST_F(PlanTest, LeftOutPluginsAndMilestonesThatNobodyWaitsForStandNowhere) {
  plugins({"a > x unused", "b < x", "c < gone > other"});
  options_.selection.denied = {"c"};
  const std::vector<std::string> lines = order();
  EXPECT_THAT(lines, ElementsAre(HasSubstr("plugin a "), HasSubstr("milestone x "),
                                 HasSubstr("plugin b ")));
  EXPECT_THAT(blocked_, IsEmpty());
}

TEST_F(PlanTest, WhoWaitsForEverIsBlockedInLinkingOrder) {
  plugins({"free", "z < b-up", "b < a-up > b-up", "a < b-up > a-up"});
  EXPECT_THAT(order(), ElementsAre(HasSubstr("plugin free ")));
  EXPECT_THAT(blocked_, ElementsAre("z", "b", "a"));
}

TEST_F(PlanTest, BootThatCannotReadItsPluginsRunsNothing) {
  plugins({"a"});
  put("/etc/nimbus/bootforge/debug.conf", "one:a\\x:b:c\n");
  EXPECT_THAT(order(), IsEmpty());
}

TEST_F(PlanTest, ScriptsRunByLevelAndBackwardsAtAStop) {
  scripts("/etc/init.d/late 20\n/etc/init.d/early 5\n/etc/init.d/other 5\n");
  const auto names = [](const std::vector<std::string>& lines) {
    std::vector<std::string> result;
    for (const std::string& line : lines) {
      const std::size_t first = line.find(' ');
      if (line.starts_with("script")) {
        result.push_back(line.substr(first + 1, line.find(' ', first + 1) - first - 1));
      }
    }
    return result;
  };
  const std::vector<std::string> forward = order();
  EXPECT_THAT(names(forward), ElementsAre("early", "other", "late"));
  EXPECT_TRUE(std::any_of(forward.begin(), forward.end(),
                          [](const std::string& line) { return line.starts_with("level "); }));
  EXPECT_THAT(names(order(true)), ElementsAre("late", testing::_, testing::_));
}

class WhyTest : public PlanningTest {
 protected:
  /// Each chain as one line; "more" where not all are listed.
  std::vector<std::string> chains(const std::string& from, const std::string& to) {
    const Image image(options_);
    const WaitGraph graph(image);
    const Chains found = shortestChains(graph, *graph.find(from), *graph.find(to));
    std::vector<std::string> lines;
    for (const WaitGraph::Indices& chain : found.chains) {
      std::string line;
      for (const std::string& name : namesOf(graph, chain))
        line += (line.empty() ? "" : " ") + name;
      lines.push_back(line);
    }
    if (!found.areAll) lines.emplace_back("more");
    return lines;
  }

  static std::string said(const std::vector<Tie>& ties) {
    std::string text;
    for (const Tie& tie : ties) {
      text += (text.empty() ? "" : " ") + tie.milestone + ':';
      for (const std::string& plugin : tie.plugins) text += plugin + ',';
    }
    return text;
  }
  Reasons why(const std::string& name) {
    const Image image(options_);
    const WaitGraph graph(image);
    return reasonsOf(image, graph, *graph.find(name));
  }
};

TEST_F(WhyTest, AllShortestChainsAreFoundAndNoLongerOne) {
  plugins({"a < m1 m2 m3", "b < m4 > m1 m2", "c < m4 m5 > m1", "d > m4 m5", "e < m4 > m6",
           "f < m6 > m3"});
  EXPECT_THAT(chains("a", "d"), testing::UnorderedElementsAre("a m1 b m4 d", "a m2 b m4 d",
                                                              "a m1 c m4 d", "a m1 c m5 d"));
  EXPECT_THAT(chains("a", "e"), ElementsAre("a m3 f m6 e"));
  EXPECT_THAT(chains("d", "a"), IsEmpty());
  EXPECT_THAT(chains("b", "c"), IsEmpty());
}

TEST_F(WhyTest, MilestonesMayStandAtEitherEnd) {
  plugins({"a < x", "b > x"});
  EXPECT_THAT(chains("a", "x"), ElementsAre("a x"));
  EXPECT_THAT(chains("x", "b"), ElementsAre("x b"));
}

TEST_F(WhyTest, LeftOutProvidersCloseNoChain) {
  plugins({"a < x", "b < y > x", "c > y"});
  EXPECT_THAT(chains("a", "c"), ElementsAre("a x b y c"));
  options_.selection.denied = {"b"};
  EXPECT_THAT(chains("a", "c"), IsEmpty());
  EXPECT_THAT(chains("a", "b"), IsEmpty());
}

TEST_F(WhyTest, PluginWaitsForItselfInACycleOnly) {
  plugins({"a < x > y", "b < y > x", "c"});
  EXPECT_THAT(chains("a", "a"), ElementsAre("a x b y a"));
  EXPECT_THAT(chains("c", "c"), IsEmpty());
}

TEST_F(WhyTest, MilestoneThatIsRequiredTwiceIsOneWay) {
  plugins({"a < x x", "b > x x"});
  EXPECT_THAT(chains("a", "b"), ElementsAre("a x b"));
}

TEST_F(WhyTest, OfVeryManyChainsTenThousandAreListed) {
  // Each of fourteen steps has two milestones to go by: 16,384 chains.
  constexpr int kSteps = 14;
  std::vector<std::string> lines;
  for (int step = 0; step <= kSteps; ++step) {
    const auto ways = [](int at) { return fmt::format("m{0}a m{0}b", at); };
    lines.push_back(fmt::format("p{}{}{}", step, step < kSteps ? " < " + ways(step) : "",
                                step > 0 ? " > " + ways(step - 1) : ""));
  }
  plugins(lines);
  std::vector<std::string> found = chains("p0", "p14");
  ASSERT_EQ(found.size(), 10'001U);
  EXPECT_EQ(found.back(), "more");
  found.pop_back();
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), 10'000U) << "none twice";
  for (const std::string& chain : found) {
    EXPECT_TRUE(chain.starts_with("p0 m0") && chain.ends_with(" p14")) << chain;
  }
}

TEST_F(WhyTest, SaysWhatAPluginWaitsForAndWhatWaitsForIt) {
  plugins({"a < x", "b < x y gone", "c < z > x", "d > x z", "e > y"});
  options_.selection.denied = {"d"};
  const Reasons reasons = why("b");
  EXPECT_EQ(reasons.name, "b");
  EXPECT_TRUE(reasons.runs);
  EXPECT_EQ(reasons.reason, "");
  EXPECT_EQ(said(reasons.waitsFor), "x:c, y:e, gone:");
  EXPECT_EQ(said(reasons.waitedForBy), "");
  EXPECT_EQ(said(why("c").waitedForBy), "x:a,b,");
  EXPECT_EQ(said(why("x").waitsFor), "x:c,");
  EXPECT_EQ(said(why("x").waitedForBy), "x:a,b,");
}

TEST_F(WhyTest, SaysWhatKeepsAPluginFromRunning) {
  plugins({"a < b-up > a-up", "b < a-up > b-up", "c < a-up", "d", "e"});
  options_.selection.denied = {"d"};
  EXPECT_EQ(why("a").reason, "it waits for itself: a -> b-up -> b -> a-up -> a");
  EXPECT_FALSE(why("a").runs);
  EXPECT_EQ(why("c").reason, "it waits behind a cycle: a -> b-up -> b -> a-up -> a");
  EXPECT_EQ(why("d").reason, "it is on the deny list");
  EXPECT_TRUE(why("e").runs);
  put("/etc/nimbus/bootforge/debug.conf", "one:a\\x:b:c\n");
  EXPECT_EQ(why("e").reason, "the boot cannot read its plugins");
}

TEST_F(WhyTest, NamesThatAreNotKnownHaveNearestOnes) {
  plugins({"network > network-up", "storage"});
  const Image image(options_);
  const WaitGraph graph(image);
  EXPECT_FALSE(graph.find("netwrok"));
  EXPECT_THAT(graph.nearest("netwrok"), ElementsAre("network"));
}

class DrawingTest : public PlanningTest {
 protected:
  std::string drawn(const std::string& around = "", std::size_t depth = 1000) {
    const Image image(options_);
    const WaitGraph graph(image);
    std::optional<Part> part;
    if (!around.empty()) part = Part{*graph.find(around), depth};
    return drawGraph(image, graph, part);
  }
  static int count(const std::string& text, const std::string& what) {
    int found = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
      ++found;
    }
    return found;
  }
};

TEST_F(DrawingTest, NodesAndEdgesAreDrawn) {
  plugins({"a < x", "b > x"});
  const std::string text = drawn();
  EXPECT_TRUE(text.starts_with("digraph g {\n")) << text;
  EXPECT_TRUE(text.ends_with("}\n")) << text;
  EXPECT_EQ(count(text, "label="), 3);
  EXPECT_THAT(text, HasSubstr("n1 -> n2;\n"));
  EXPECT_THAT(text, HasSubstr("n2 -> n0;\n"));
  EXPECT_EQ(count(text, " -> "), 2);
}

TEST_F(DrawingTest, NamesAreEscaped) {
  putPlugin("a\"b\\c\nd.json", Text{});
  EXPECT_THAT(drawn(), HasSubstr(R"([label="a\"b\\c\\x0ad")"));
}

TEST_F(DrawingTest, LeftOutAndBlockedPluginsAreMarkedWithTheReason) {
  plugins({"a < x > x", "b", "c < x", "d"});
  options_.selection.denied = {"b"};
  const std::string text = drawn();
  EXPECT_THAT(text, HasSubstr("a\\nblocked: it waits for itself: a -> x -> a\""));
  EXPECT_THAT(text, HasSubstr("c\\nblocked: it waits behind a cycle: a -> x -> a\""));
  EXPECT_THAT(text, HasSubstr("b\\nleft out: it is on the deny list\""));
  EXPECT_EQ(count(text, "style=dashed"), 1);
  EXPECT_EQ(count(text, "color=red"), 2);
  EXPECT_THAT(text, HasSubstr("[label=\"d\""));
}

TEST_F(DrawingTest, PartIsWhatIsSoManyEdgesAway) {
  plugins({"a > x", "b < x > y", "c < y", "lone"});
  EXPECT_EQ(count(drawn("b", 0), "label="), 1);
  EXPECT_EQ(count(drawn("b", 1), "label="), 3);
  EXPECT_EQ(count(drawn("b", 2), "label="), 5);
  const std::string text = drawn("a");
  EXPECT_EQ(count(text, "label="), 5);
  EXPECT_THAT(text, Not(HasSubstr("lone")));
  EXPECT_EQ(count(drawn("a", 1), " -> "), 1);
}

}  // namespace
}  // namespace bootforge::analyze::test
