#include "analyze/recorded/boot_summary.h"

#include <gtest/gtest.h>

#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

using Outcome = PluginMessages::Outcome;
using test::boot;
using test::ran;

PluginMessages told(Outcome outcome, const std::string& reason = {}) {
  PluginMessages messages;
  messages.begun = true;
  messages.outcome = outcome;
  messages.reason = reason;
  return messages;
}

TEST(BootSummary, TellsOfFailuresAndOfWhatDidNotRun) {
  BootMessages messages;
  messages.readable = true;
  messages.plugins["a"] = told(Outcome::Failed, "a->start() failed: no disk");
  messages.plugins["b"] = told(Outcome::Failed, "other->start() failed: no disk");
  messages.plugins["c"] = told(Outcome::Failed, "c->start() is odd");
  messages.plugins["d\n"] = told(Outcome::Failed, "two\nlines");
  messages.plugins["e"] = told(Outcome::Skipped);
  ProfileSection section = boot({ran("a", 0, 10),
                                 ran("b", 0, 20),
                                 ran("c", 0, 30),
                                 ran("d\n", 0, 40),
                                 {"e", test::kBegin + 50, 0},
                                 {"f", 0, 0}});
  section.kernelMicroseconds = 1'500'000;
  EXPECT_EQ(bootSummary(makeTimeline(section, {}, &messages), {}),
            "Boot of 2024-03-05 07:04:09 UTC: 40 µs on 4 workers, after 1.50 s of kernel\n"
            "failed a: no disk\n"
            "failed b: other->start() failed: no disk\n"
            "failed c: c->start() is odd\n"
            "failed d\\x0a: two\\x0alines\n"
            "1 plugin skipped by the operator\n"
            "1 plugin never ran\n");
}

TEST(BootSummary, OfADaemonRunSpeaksOfScripts) {
  ProfileSection section = boot({ran("a", 0, 7), {"b", 0, 0}, {"c", 0, 0}});
  section.kind = ProfileSection::Kind::Daemon;
  section.kernelMicroseconds.reset();
  EXPECT_EQ(bootSummary(makeTimeline(section, {}, nullptr), {}),
            "Daemon run of 2024-03-05 07:04:09 UTC: 7 µs on 1 worker\n2 scripts never ran\n");
  section.plugins.clear();
  EXPECT_EQ(bootSummary(makeTimeline(section, {}, nullptr), {}), "Daemon run: nothing ran\n");
}

TEST(TimeBar, ShowsWaitingAndRunning) {
  Timeline timeline;
  timeline.makespan = 100;
  TimedPlugin plugin;
  EXPECT_EQ(timeBar(timeline, plugin, 10), "") << "it never ran";
  plugin.ran = true;
  plugin.start = 50;
  plugin.end = 80;
  plugin.waitWorker = 20;
  EXPECT_EQ(timeBar(timeline, plugin, 10), "   ░░███");
  plugin.start = plugin.end = 100;
  plugin.waitWorker = 0;
  EXPECT_EQ(timeBar(timeline, plugin, 10), "         █") << "one column at least";
  plugin.start = 0;
  EXPECT_EQ(timeBar(timeline, plugin, 4), "████");
  timeline.makespan = 0;
  EXPECT_EQ(timeBar(timeline, plugin, 4), "");
}

TEST(Results, AreWordsForPeople) {
  using Result = TimedPlugin::Result;
  TimedPlugin plugin;
  const auto words = [&plugin](Result result) {
    plugin.result = result;
    return resultForPeople(plugin, {});
  };
  EXPECT_EQ(words(Result::Failed), "failed");
  EXPECT_EQ(words(Result::Skipped), "skipped");
  EXPECT_EQ(words(Result::Never), "never ran");
  EXPECT_EQ(words(Result::Activated), "");
  EXPECT_EQ(words(Result::Unknown), "");
}

}  // namespace
}  // namespace bootforge::analyze
