#include "analyze/recorded/critical_chain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "analyze/recorded/chain_view.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

using test::boot;
using test::native;
using test::ran;
using testing::ElementsAre;

/// "a >M b" for b that waited for a at M, "a =0 b" for b that waited for a's worker 0.
std::string drawn(const Timeline& timeline) {
  std::string text;
  for (const ChainLink& link : criticalChain(timeline)) {
    const TimedPlugin& plugin = timeline.plugins[link.plugin];
    if (link.after == ChainLink::After::Milestone) text += " >" + link.milestone + ' ';
    if (link.after == ChainLink::After::Worker) text += " =" + std::to_string(plugin.worker) + ' ';
    text += plugin.name;
  }
  return text;
}

TEST(CriticalChain, WorkerIsToBlameAboveFiftyMicroseconds) {
  // w holds worker 0; b is ready when a ends at 10 on worker 1, and w ends as b starts.
  const std::vector<KnownPlugin> known = {native("a", {}, {"M"}), native("b", {"M"}), native("w")};
  EXPECT_EQ(drawn(makeTimeline(boot({ran("a", 0, 10), ran("w", 0, 61), ran("b", 61, 99)}), known,
                               nullptr)),
            "a =0 b")
      << "a's worker is the lowest that is free";
  EXPECT_EQ(drawn(makeTimeline(boot({ran("a", 0, 10), ran("w", 0, 60), ran("b", 60, 99)}), known,
                               nullptr)),
            "a >M b");
}

TEST(CriticalChain, WithoutAnybodyBeforeOnTheWorkerTheMilestoneCounts) {
  const Timeline timeline =
      makeTimeline(boot({ran("a", 0, 10), ran("w", 5, 400), ran("x", 10, 300), ran("b", 200, 500)}),
                   {native("a", {}, {"M"}), native("b", {"M"}), native("w"), native("x")}, nullptr);
  EXPECT_EQ(drawn(timeline), "a >M b");
}

TEST(CriticalChain, TiesGoToTheNameThatSortsFirst) {
  const Timeline timeline =
      makeTimeline(boot({ran("b", 0, 10), ran("a", 0, 10), ran("z", 10, 20), ran("y", 10, 20)}),
                   {native("b", {}, {"M"}), native("a", {}, {"N", "M", "L"}), native("z", {"M"}),
                    native("y", {"N", "M", "L"})},
                   nullptr);
  EXPECT_EQ(drawn(timeline), "a >L y");
}

TEST(CriticalChain, PluginsOfNoDurationDoNotGoRound) {
  // Both take no time at one moment on one worker; z waits for a worker and for nobody else.
  const Timeline timeline =
      makeTimeline(boot({ran("s", 0, 100), ran("a", 100, 100), ran("z", 100, 100)}),
                   {native("s"), native("a", {"Z"}), native("z", {}, {"Z"})}, nullptr);
  EXPECT_EQ(drawn(timeline), "s =0 z >Z a");
}

TEST(CriticalChain, NamedPluginIsItsEnd) {
  const Timeline timeline = makeTimeline(boot({ran("a", 7, 10), ran("b", 12, 20), {"never", 0, 0}}),
                                         {native("a", {}, {"M"}), native("b", {"M"})}, nullptr);
  const Answer answer = showCriticalChain(timeline, "a", Format::Json, {});
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(test::read(answer),
            boost::json::parse(
                R"({"chain": [{"name": "a", "start": 0, "run": 3, "gap": 0, "after": null}]})"));
  const Answer none = showCriticalChain(timeline, "never", Format::Json, {});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.output, "{\n  \"chain\": []\n}\n");
  EXPECT_THAT(none.notes, ElementsAre("never did not run"));
  EXPECT_THAT(showCriticalChain(timeline, "nevr", Format::Text, {}).notes,
              ElementsAre("nevr is not in the log; did you mean never?"));
}

TEST(CriticalChain, JsonTellsWhatWasWaitedFor) {
  const Timeline timeline = makeTimeline(boot({ran("a", 0, 10), ran("b", 12, 20)}),
                                         {native("a", {}, {"M"}), native("b", {"M"})}, nullptr);
  EXPECT_EQ(test::read(showCriticalChain(timeline, std::nullopt, Format::Json, {})),
            boost::json::parse(R"({"chain": [
                {"name": "a", "start": 0, "run": 10, "gap": 0, "after": null},
                {"name": "b", "start": 12, "run": 8, "gap": 2,
                 "after": {"kind": "milestone", "name": "a", "milestone": "M"}}]})"));
}

}  // namespace
}  // namespace bootforge::analyze
