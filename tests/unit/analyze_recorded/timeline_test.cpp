#include "analyze/recorded/timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "analyze/recorded/blame.h"
#include "analyze/recorded/text_table.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

using test::boot;
using test::described;
using test::kBegin;
using test::native;
using test::ran;
using test::script;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = TimedPlugin::Result;

TEST(Timeline, WaitsAreSplitByWhatWasWaitedFor) {
  // a -> M -> b; c needs nothing and starts late
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 100), ran("b", 130, 200), ran("c", 40, 90)}),
                   {native("a", {}, {"M"}), native("b", {"M"}), native("c")}, nullptr);
  EXPECT_EQ(timeline.start, kBegin);
  EXPECT_EQ(timeline.makespan, 200);
  EXPECT_EQ(timeline.workers, 2U);
  EXPECT_EQ(timeline.plugins[1].waitMilestones, 100);
  EXPECT_EQ(timeline.plugins[1].waitWorker, 30);
  EXPECT_EQ(timeline.plugins[2].waitMilestones, 0);
  EXPECT_EQ(timeline.plugins[2].waitWorker, 40);
  EXPECT_EQ(timeline.plugins[0].worker, 0U);
  EXPECT_EQ(timeline.plugins[1].worker, 0U);
  EXPECT_EQ(timeline.plugins[2].worker, 1U);
}

TEST(Timeline, APluginThatProvidesWhatItRequiresWaitsForTheOthersOnly) {
  const Timeline timeline = makeTimeline(
      boot({ran("a", 0, 100), ran("b", 130, 200), ran("c", 0, 50)}),
      {native("a", {}, {"M"}), native("b", {"M"}, {"M"}), native("c", {}, {"M"})}, nullptr);
  EXPECT_EQ(timeline.plugins[1].waitMilestones, 100);
  EXPECT_EQ(timeline.plugins[1].waitWorker, 30);
}

TEST(Timeline, SharersOfTheExecutorAdvanceAtTheirShare) {
  // a: 0..30 alone, 30..60 with b, 60..90 with b and c: 30 + 15 + 10
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 90), ran("b", 30, 91), ran("c", 60, 90), ran("n", 0, 90)}),
                   {described("a"), described("b"), described("c"), native("n")}, nullptr);
  EXPECT_EQ(timeline.plugins[0].work, 55);
  EXPECT_EQ(timeline.plugins[0].waitExecutor, 35);
  EXPECT_EQ(timeline.plugins[1].work, 26);
  EXPECT_EQ(timeline.plugins[2].work, 10);
  EXPECT_EQ(timeline.plugins[3].work, 90);
  EXPECT_EQ(timeline.plugins[3].waitExecutor, 0);
}

TEST(Timeline, HalfAMicrosecondIsRoundedUp) {
  const Timeline timeline = makeTimeline(boot({ran("a", 0, 5), ran("b", 0, 5)}),
                                         {described("a"), described("b")}, nullptr);
  EXPECT_EQ(timeline.plugins[0].work, 3);
  EXPECT_EQ(timeline.plugins[0].exactWork, 2.5L);
}

TEST(Timeline, ManySharersAreCountedToo) {
  std::vector<ProfiledPlugin> lines;
  std::vector<KnownPlugin> known;
  for (int number = 0; number < 100; ++number) {
    lines.push_back(ran("p" + std::to_string(number), number, 100'000));
    known.push_back(described("p" + std::to_string(number)));
  }
  const Timeline timeline = makeTimeline(boot(lines), known, nullptr);
  long double sum = 0;
  for (const TimedPlugin& plugin : timeline.plugins) {
    sum += plugin.exactWork;
    EXPECT_EQ(plugin.work, std::llround(plugin.exactWork));
  }
  EXPECT_NEAR(static_cast<double>(sum), 100'000, 1e-6) << "the executor was never idle";
}

TEST(Timeline, SlackEndsWhereSomethingElseWouldBeLater) {
  // Worker 0: a 0-50, b 60-100. Worker 1: c 0-20, waited for by b. Worker 2: d 0-30.
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 50), ran("b", 60, 100), ran("c", 0, 20), ran("d", 0, 30)}),
                   {native("a"), native("b", {"C"}), native("c", {}, {"C"}), native("d")}, nullptr);
  EXPECT_EQ(timeline.plugins[0].slack, 10);
  EXPECT_EQ(timeline.plugins[1].slack, 0);
  EXPECT_EQ(timeline.plugins[2].slack, 40);
  EXPECT_EQ(timeline.plugins[3].slack, 70);
}

TEST(Timeline, ScriptsWaitForAllLowerLevels) {
  const Timeline timeline =
      makeTimeline(boot({ran("x", 0, 10), ran("y", 12, 20), ran("z", 25, 30)}),
                   {script("x", 5), script("y", 10), script("z", 4'294'967'295U)}, nullptr);
  EXPECT_EQ(timeline.plugins[1].waitMilestones, 10);
  EXPECT_EQ(timeline.plugins[2].waitMilestones, 20);
  EXPECT_THAT(timeline.contradictions, IsEmpty());
}

TEST(Timeline, WhatDidNotRunCountsForNothing) {
  const Timeline timeline = makeTimeline(
      boot({{"never", 0, 0}, {"skipped", kBegin - 50, 0}, ran("a", 0, 10)}),
      {native("never", {}, {"M"}), native("skipped", {}, {"M"}), native("a", {"M"})}, nullptr);
  EXPECT_EQ(timeline.start, kBegin);
  EXPECT_EQ(timeline.workers, 1U);
  EXPECT_EQ(timeline.plugins[0].result, Result::Never);
  EXPECT_EQ(timeline.plugins[1].result, Result::Skipped);
  EXPECT_EQ(timeline.plugins[1].start, -50);
  EXPECT_EQ(timeline.plugins[2].waitMilestones, 0);
}

TEST(Timeline, NothingRanIsNoError) {
  const Timeline timeline = makeTimeline(boot({{"never", 0, 0}}), {}, nullptr);
  EXPECT_EQ(timeline.workers, 0U);
  EXPECT_EQ(timeline.makespan, 0);
  const Answer answer = blame(timeline, BlameOrder::Start, Format::Text, {});
  EXPECT_EQ(answer.output.substr(0, 52), "Boot: nothing ran, after 5.00 s of kernel\n1 plugin n");
}

TEST(Timeline, EndBeforeItsStartIsSaidAndCountsAsNothing) {
  const Timeline timeline = makeTimeline(boot({ran("a", 20, 10), ran("b", 0, 15)}), {}, nullptr);
  EXPECT_EQ(timeline.plugins[0].run, 0);
  EXPECT_EQ(timeline.plugins[0].end, 20);
  EXPECT_EQ(timeline.makespan, 20);
  EXPECT_THAT(
      timeline.notes,
      ElementsAre("a ended before it started (was the clock set?); it counts as a run of 0"));
}

TEST(Timeline, StartBeforeTheEndOfWhatWasWaitedForIsAContradiction) {
  const Timeline timeline = makeTimeline(boot({ran("a", 0, 20), ran("b", 15, 30)}),
                                         {native("a", {}, {"M"}), native("b", {"M"})}, nullptr);
  EXPECT_THAT(timeline.contradictions,
              ElementsAre("b started 5 us before the end of a, for which it waits"));
}

TEST(Timeline, ManyContradictionsAreCountedAndSomeTold) {
  std::vector<ProfiledPlugin> lines = {ran("a", 0, 20)};
  std::vector<KnownPlugin> known = {native("a", {}, {"M"})};
  for (int number = 0; number < 7; ++number) {
    lines.push_back(ran("b" + std::to_string(number), 15, 30));
    known.push_back(native("b" + std::to_string(number), {"M"}));
  }
  const Timeline timeline = makeTimeline(boot(lines), known, nullptr);
  ASSERT_EQ(timeline.contradictions.size(), 6U);
  EXPECT_EQ(timeline.contradictions[0], "b0 started 5 us before the end of a, for which it waits");
  EXPECT_EQ(timeline.contradictions[4], "b4 started 5 us before the end of a, for which it waits");
  EXPECT_EQ(timeline.contradictions[5], "and 2 more such starts");
}

TEST(Timeline, AnEndWithoutAStartIsSaidAndCountsAsNeverRun) {
  const Timeline timeline =
      makeTimeline(boot({{"odd", 0, kBegin + 5}, ran("a", 0, 10)}), {}, nullptr);
  EXPECT_EQ(timeline.plugins[0].result, Result::Never);
  EXPECT_THAT(timeline.notes, ElementsAre("odd has an end and no start; it counts as never run"));
  EXPECT_EQ(timeline.makespan, 10);
}

TEST(Timeline, TwoPluginsOfOneNameArePairedInTheirOrders) {
  const Timeline timeline = makeTimeline(boot({ran("x", 0, 10), ran("x", 20, 30)}),
                                         {native("x", {}, {"M"}), native("x", {"M"})}, nullptr);
  EXPECT_EQ(timeline.plugins[1].waitMilestones, 10);
}

TEST(Timeline, ResultsComeFromMessages) {
  BootMessages messages;
  messages.plugins["a"].outcome = PluginMessages::Outcome::Activated;
  messages.plugins["b"] = {true, "1.0", PluginMessages::Outcome::Failed, "b->start() failed: no"};
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 10), ran("b", 0, 10), ran("c", 0, 10)}), {}, &messages);
  EXPECT_EQ(timeline.plugins[0].result, Result::Activated);
  EXPECT_EQ(timeline.plugins[1].reason, "b->start() failed: no");
  EXPECT_EQ(timeline.plugins[2].result, Result::Unknown);
}

TEST(Blame, OrderIsTheOneAskedFor) {
  const Timeline timeline = makeTimeline(
      boot({{"never", 0, 0}, ran("a", 0, 30), ran("b", 5, 55), ran("c", 40, 50), ran("d", 0, 30)}),
      {}, nullptr);
  const auto names = [&](BlameOrder order) {
    std::vector<std::string> result;
    const boost::json::value answer = test::read(blame(timeline, order, Format::Json, {}));
    for (const auto& row : answer.at("plugins").as_array()) {
      result.emplace_back(row.at("name").as_string());
    }
    return result;
  };
  EXPECT_THAT(names(BlameOrder::Start), ElementsAre("a", "d", "b", "c", "never"));
  EXPECT_THAT(names(BlameOrder::Run), ElementsAre("b", "a", "d", "c", "never"));
  EXPECT_THAT(names(BlameOrder::Wait), ElementsAre("c", "b", "a", "d", "never"));
  EXPECT_THAT(names(BlameOrder::Slack), ElementsAre("b", "c", "a", "d", "never"));
}

TEST(Blame, BarsFitTheTerminal) {
  const Timeline timeline = makeTimeline(
      boot({ran("network-interfaces-of-the-host", 0, 999'000), ran("b", 999'000, 1'999'000)}), {},
      nullptr);
  for (const std::size_t width : {80U, 100U, 132U, 200U}) {
    const std::string text =
        blame(timeline, BlameOrder::Start, Format::Text, {width, false}).output;
    EXPECT_NE(text.find("█"), std::string::npos) << width;
    for (std::size_t begin = text.find("start"); begin < text.size();) {
      const std::size_t end = text.find('\n', begin);
      EXPECT_LE(displayWidth(text.substr(begin, end - begin)), width);
      begin = end + 1;
    }
  }
}

/// The heading and the row of a table with one plugin, whose bar is as long as the table has room.
std::pair<std::string, std::string> blameOfOne(std::size_t width) {
  const Timeline timeline = makeTimeline(boot({ran("one", 0, 999'000)}), {}, nullptr);
  const std::string text = blame(timeline, BlameOrder::Start, Format::Text, {width, false}).output;
  const std::size_t heading = text.find("start");
  const std::size_t row = text.find('\n', heading) + 1;
  return {text.substr(heading, row - 1 - heading), text.substr(row, text.size() - 1 - row)};
}

TEST(Blame, ColumnsGiveWayWhereTheBarWouldBeShorterThanTwelve) {
  const auto placeOfBar = [](const std::string& heading) { return heading.find("timeline"); };
  const std::string all = blameOfOne(200).first;
  const std::size_t enoughForAll = placeOfBar(all) + 12;
  const std::string few = blameOfOne(enoughForAll - 1).first;
  const std::size_t enoughForFew = placeOfBar(few) + 12;
  const std::string fewest = blameOfOne(1).first;
  EXPECT_THAT(all, testing::MatchesRegex("start +waited +for worker +run +executor +slack +worker "
                                         "+name +timeline"));
  EXPECT_THAT(few, testing::MatchesRegex("start +for worker +run +slack +name +timeline"));
  EXPECT_THAT(fewest, testing::MatchesRegex("start +run +name +timeline"));
  for (std::size_t width = 1; width < 200; ++width) {
    const auto& [heading, row] = blameOfOne(width);
    EXPECT_EQ(heading, width >= enoughForAll ? all : width >= enoughForFew ? few : fewest);
    const std::size_t place = placeOfBar(heading);
    const std::size_t room = width < place + 12 ? 12 : width - place;
    EXPECT_EQ(displayWidth(row), place + std::min<std::size_t>(room, 60)) << width;
  }
}

TEST(TextTable, OnlyItsHeadingIsFaintAndOnlyWhereThereAreColours) {
  TextTable table({"name", ">run"});
  table.add({"boot", "1 s"});
  EXPECT_EQ(table.text({80, false}), "name  run\nboot  1 s\n");
  EXPECT_EQ(table.text({80, true}), "\x1B[2mname\x1B[0m  \x1B[2mrun\x1B[0m\nboot  1 s\n");
}

TEST(Blame, TextFitsTheWidthAndHoldsNoColours) {
  const Timeline timeline = makeTimeline(boot({ran("evil\x1B[2J", 0, 1'234'567)}), {}, nullptr);
  const std::string text = blame(timeline, BlameOrder::Start, Format::Text, {100, false}).output;
  EXPECT_EQ(text.find('\x1B'), std::string::npos);
  EXPECT_NE(text.find("evil\\x1b[2J"), std::string::npos);
  EXPECT_EQ(text.substr(0, text.find('\n')),
            "Boot of 2024-03-05 07:04:09 UTC: 1.23 s on 1 worker, after 5.00 s of kernel");
}

}  // namespace
}  // namespace bootforge::analyze
