#include "analyze/recorded/savings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "analyze/recorded/simulation.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

using test::boot;
using test::described;
using test::native;
using test::ran;

constexpr std::size_t kEnough = 1'000'000;

TEST(Savings, AreWhatTheSimulatedBootEndsSooner) {
  //   a -> M -> b     0 ... 100 ... 150
  //   c               0 ... 120
  const std::vector<KnownPlugin> known = {native("a", {}, {"M"}), native("b", {"M"}), native("c")};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 100), ran("b", 100, 150), ran("c", 0, 120)}), known, nullptr);
  const Savings savings = findSavings(timeline, known, kEnough);
  EXPECT_EQ(savings.makespan, 150);
  EXPECT_EQ(savings.modelError, 0.0);
  ASSERT_EQ(savings.plugins.size(), 3U);
  EXPECT_EQ(savings.plugins[0]->half, 30) << "then c is the last one";
  EXPECT_EQ(savings.plugins[0]->none, 30);
  EXPECT_EQ(savings.plugins[1]->half, 25);
  EXPECT_EQ(savings.plugins[1]->none, 30);
  EXPECT_EQ(savings.plugins[2]->half, 0);
  EXPECT_FALSE(savings.plugins[2]->native) << "it is one already";
}

TEST(Savings, NativePluginLeavesTheExecutorToTheOthers) {
  const std::vector<KnownPlugin> known = {described("a"), described("b")};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 200), ran("b", 0, 200)}), known, nullptr);
  ASSERT_EQ(timeline.plugins[0].work, 100);
  const Savings savings = findSavings(timeline, known, kEnough);
  EXPECT_EQ(savings.makespan, 200);
  EXPECT_EQ(savings.plugins[0]->native, 100);
  EXPECT_EQ(savings.plugins[0]->none, 100);
  EXPECT_EQ(savings.plugins[0]->half, 50);
}

TEST(Savings, CriticalChainAndThoseWithMostWorkComeFirst) {
  const std::vector<KnownPlugin> known = {native("small", {}, {"M"}), native("last", {"M"}),
                                          native("large"), native("middle")};
  const Timeline timeline = makeTimeline(boot({ran("small", 0, 10), ran("last", 10, 210),
                                               ran("large", 0, 150), ran("middle", 0, 100)}),
                                         known, nullptr);
  const Savings savings = findSavings(timeline, known, 3 * 2 * known.size());
  EXPECT_TRUE(savings.plugins[0]);
  EXPECT_TRUE(savings.plugins[1]);
  EXPECT_TRUE(savings.plugins[2]);
  EXPECT_FALSE(savings.plugins[3]) << "the work that was allowed is done";
}

TEST(Savings, WhatHasNoWorkSavesNothing) {
  const std::vector<KnownPlugin> known = {described("a"), native("b")};
  const Timeline timeline = makeTimeline(boot({ran("a", 0, 0), ran("b", 0, 10)}), known, nullptr);
  const Savings savings = findSavings(timeline, known, 0);
  ASSERT_TRUE(savings.plugins[0]);
  EXPECT_EQ(savings.plugins[0]->none, 0);
  EXPECT_EQ(savings.plugins[0]->native, 0);
  EXPECT_FALSE(savings.plugins[1]);
}

TEST(Savings, OfABootInWhichNothingRanAreNone) {
  const Savings savings = findSavings(makeTimeline(boot({{"a", 0, 0}}), {}, nullptr), {}, kEnough);
  ASSERT_EQ(savings.plugins.size(), 1U);
  EXPECT_FALSE(savings.plugins[0]);
  EXPECT_FALSE(savings.modelError);
}

TEST(Simulation, NativePluginDoesNotShareTheExecutor) {
  const std::vector<KnownPlugin> known = {described("a"), described("b")};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 200), ran("b", 0, 200)}), known, nullptr);
  EXPECT_EQ(simulate(timeline, known, {{}, {}, {"a"}}, 2).makespan, 100);
  EXPECT_EQ(simulate(timeline, known, {}, 2).makespan, 200);
}

}  // namespace
}  // namespace bootforge::analyze
