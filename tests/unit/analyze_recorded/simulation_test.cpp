#include "analyze/recorded/simulation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "analyze/recorded/simulation_view.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"
#include "util/exception.h"

namespace bootforge::analyze {
namespace {

using test::boot;
using test::described;
using test::native;
using test::ran;
using testing::ElementsAre;

std::vector<std::string> orderOf(const Simulation& simulation) {
  std::vector<std::string> names;
  for (const SimulatedRun& run : simulation.runs) names.push_back(run.name);
  return names;
}

TEST(Simulation, LongestChainRunsFirst) {
  //   c1 -> M -> c2
  //   a
  const std::vector<KnownPlugin> known = {native("a"), native("c1", {}, {"M"}),
                                          native("c2", {"M"})};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 30), ran("c1", 30, 40), ran("c2", 40, 60)}), known, nullptr);
  const Simulation one = simulate(timeline, known, {}, 1);
  EXPECT_THAT(orderOf(one), ElementsAre("c1", "a", "c2"));
  EXPECT_EQ(one.makespan, 60);
  const Simulation two = simulate(timeline, known, {}, 2);
  EXPECT_EQ(two.makespan, 30);
  EXPECT_EQ(two.busy, 60);
}

TEST(Simulation, ExecutorIsShared) {
  const std::vector<KnownPlugin> known = {described("a"), described("b"), native("n")};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 100), ran("b", 100, 150), ran("n", 0, 10)}), known, nullptr);
  const Simulation simulation = simulate(timeline, known, {}, 8);
  EXPECT_NEAR(static_cast<double>(simulation.makespan), 150, 1e-9)
      << "more workers do not make the executor faster";
  EXPECT_NEAR(static_cast<double>(simulation.runs[1].end), 100, 1e-9) << "b ran at one half";
  EXPECT_NEAR(static_cast<double>(simulation.executorBusy), 150, 1e-9);
}

TEST(Simulation, LeftOutPluginStillWeighs) {
  // Without its dependents' edges, first would not be chosen before a.
  const std::vector<KnownPlugin> known = {native("a"), native("first", {}, {"M"}),
                                          native("denied", {"M"})};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 1), ran("first", 1, 2), ran("denied", 2, 3)}), known, nullptr);
  EXPECT_THAT(orderOf(simulate(timeline, known, {{}, {"denied"}}, 1)), ElementsAre("first", "a"));
}

TEST(Simulation, ChangesAreSimulatedAndTheModelIsJudgedWithoutThem) {
  const std::vector<KnownPlugin> known = {native("a", {}, {"M"}), native("b", {"M"})};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 100), ran("b", 100, 150)}), known, nullptr);
  const boost::json::value answer =
      test::read(showSimulations(timeline, known, {{{"a", 10}}, {}}, {1, 4}, Format::Json, {}));
  EXPECT_EQ(answer, boost::json::parse(R"({
      "recorded": {"makespan": 150, "workers": 1},
      "runs": [{"workers": 1, "makespan": 60, "speedup": 2.5E0, "utilisation": 1E0,
                "executor": 0E0, "order": ["a", "b"]},
               {"workers": 4, "makespan": 60, "speedup": 2.5E0, "utilisation": 2.5E-1,
                "executor": 0E0, "order": ["a", "b"]}],
      "model_error": 0E0})"));
}

TEST(Simulation, NameThatNobodyHasIsAnError) {
  const Timeline timeline = makeTimeline(boot({ran("network", 0, 100)}), {}, nullptr);
  try {
    showSimulations(timeline, {}, {{}, {"netwrk"}}, {1}, Format::Json, {});
    FAIL() << "accepted";
  } catch (const Exception& error) {
    EXPECT_STREQ(error.what(), "netwrk: no such plugin; did you mean network?");
  }
}

TEST(Simulation, MembersOfACycleNeverRun) {
  const std::vector<KnownPlugin> known = {native("a", {"B"}, {"A"}), native("b", {"A"}, {"B"}),
                                          native("c")};
  const Timeline timeline = makeTimeline(boot({ran("c", 0, 5)}), known, nullptr);
  EXPECT_THAT(orderOf(simulate(timeline, known, {}, 2)), ElementsAre("c"));
}

}  // namespace
}  // namespace bootforge::analyze
