#include "analyze/recorded/stuck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

using test::native;
using test::script;
using testing::IsEmpty;
using testing::Not;

Answer answerTo(const std::vector<KnownPlugin>& known, const std::string& capture) {
  KnownNames names;
  for (const KnownPlugin& plugin : known) names.add(plugin.name);
  return showStuck(known, readMessages(capture, names, WhichRun::Last), Format::Json, {});
}

TEST(Stuck, RunningPluginBlocksAllThatWaitBehindIt) {
  // a -> M -> b -> N -> c; d is free
  const Answer answer =
      answerTo({native("a", {}, {"M"}), native("b", {"M"}, {"N"}), native("c", {"N"}), native("d")},
               "[    1.5] bootforge: Activating Bootforge plugin a.\n"
               "[    1.6] bootforge: Activating Bootforge plugin d.\n"
               "[    1.7] bootforge: Bootforge plugin d activated.\n");
  EXPECT_EQ(answer.status, 1);
  EXPECT_THAT(answer.notes, IsEmpty());
  EXPECT_EQ(test::read(answer), boost::json::parse(R"({
      "running": [{"name": "a", "since": "1.5", "blocks": 2}],
      "waiting": [{"name": "b", "for": [{"milestone": "M", "plugins": ["a"]}]},
                  {"name": "c", "for": [{"milestone": "N", "plugins": ["b"]}]}],
      "cycle": []})"));
}

TEST(Stuck, TextNamesWhatHoldsMostUpFirst) {
  const std::vector<KnownPlugin> known = {native("free"), native("a", {}, {"M"}),
                                          native("b", {"M"}, {"N"}), native("c", {"N"})};
  KnownNames names;
  for (const KnownPlugin& plugin : known) names.add(plugin.name);
  const auto textOf = [&](const std::string& capture) {
    return showStuck(known, readMessages(capture, names, WhichRun::Last), Format::Text, {}).output;
  };
  EXPECT_EQ(textOf("[    1.5] bootforge: Activating Bootforge plugin a.\n"
                   "[    1.6] bootforge: Activating Bootforge plugin free.\n"),
            "The boot waits for a, which began at 1.5 and holds up 2 plugins\n"
            "2 plugins running, 2 waiting\n"
            "\n"
            "holds up  since  running\n"
            "       2  1.5    a\n"
            "       0  1.6    free\n"
            "\n"
            "waiting  for\n"
            "b        M, from a\n"
            "c        N, from b\n");
  EXPECT_EQ(textOf("bootforge: Activating Bootforge plugin free.\n").substr(0, 28),
            "The boot waits for free\n1 pl");
}

TEST(Stuck, TextShowsAFewOfManyThatAreMissing) {
  std::vector<KnownPlugin> known = {native("last", {"M"})};
  for (const char* name : {"a", "b", "c", "d", "e"}) known.push_back(native(name, {}, {"M"}));
  const auto textOf = [&] {
    KnownNames names;
    for (const KnownPlugin& plugin : known) names.add(plugin.name);
    const std::string capture = "bootforge: Activating Bootforge plugin a.\n";
    return showStuck(known, readMessages(capture, names, WhichRun::Last), Format::Text, {}).output;
  };
  EXPECT_THAT(textOf(), testing::HasSubstr("last     M, from a, b, c, d, e\n"));
  known.push_back(native("f", {}, {"M"}));
  EXPECT_THAT(textOf(), testing::HasSubstr("last     M, from a, b, c, d and 2 more\n"));
}

TEST(Stuck, NothingIsStuckInAWholeBoot) {
  const Answer answer = answerTo({native("a"),
                                  [] {
                                    KnownPlugin plugin = native("out");
                                    plugin.leftOut = "denied";
                                    return plugin;
                                  }()},
                                 "bootforge: Activating Bootforge plugin a.\n"
                                 "bootforge: Bootforge plugin a activation failed: x\n");
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(test::read(answer),
            boost::json::parse(R"({"running": [], "waiting": [], "cycle": []})"));
}

TEST(Stuck, CycleIsToldWhereNothingRuns) {
  const Answer answer =
      answerTo({native("x", {"C"}, {"A"}), native("b", {"A"}, {"B"}), native("a", {"B"}, {"A"}),
                native("behind", {"A"}), native("done")},
               "bootforge: Activating Bootforge plugin done.\nbootforge: Bootforge plugin done "
               "activated.\n");
  EXPECT_EQ(test::read(answer).at("cycle"), boost::json::parse(R"(["a", "B", "b", "A", "a"])"));
  EXPECT_EQ(answer.status, 1);
}

TEST(Stuck, PluginThatWaitsForItselfIsACycle) {
  EXPECT_EQ(test::read(answerTo({native("a", {"M"}, {"M"})}, "")).at("cycle"),
            boost::json::parse(R"(["a", "M", "a"])"));
}

TEST(Stuck, OtherCapturesTellWhatTheyCan) {
  // b has begun, so a has ended; whether b has, only another capture could tell.
  const Answer answer = answerTo({native("a", {}, {"M"}), native("b", {"M"})},
                                 "Mar  5 07:04:09 h bootforge[7]: executing start plugin: a\n"
                                 "Mar  5 07:04:10 h bootforge[7]: executing start plugin: b\n");
  EXPECT_THAT(answer.notes, Not(IsEmpty()));
  EXPECT_EQ(test::read(answer).at("running"),
            boost::json::parse(R"([{"name": "b", "since": "Mar  5 07:04:10", "blocks": 0}])"));
}

TEST(Stuck, WhatTheImageDoesNotKnowMayRunToo) {
  const Answer answer = answerTo({native("a")},
                                 "[    1.5] bootforge: Activating Bootforge plugin gone.\n"
                                 "[    1.6] bootforge: Activating Bootforge plugin past.\n"
                                 "[    1.7] bootforge: Bootforge plugin past activated.\n"
                                 "[    1.8] bootforge: Activating Bootforge plugin a.\n"
                                 "[    1.9] bootforge: Bootforge plugin a activated.\n");
  EXPECT_EQ(test::read(answer).at("running"),
            boost::json::parse(R"([{"name": "gone", "since": "1.5", "blocks": 0}])"));
  EXPECT_EQ(answer.status, 1);
}

TEST(Stuck, ScriptsWaitForLevels) {
  const Answer answer = answerTo({script("x", 5), script("y", 10), script("z", 20)},
                                 "bootforge: Activating Bootforge plugin x.\n");
  EXPECT_EQ(test::read(answer).at("waiting").at(1),
            boost::json::parse(
                R"({"name": "z", "for": [{"milestone": "_<->_priority_<->_5", "plugins": ["x"]},
                               {"milestone": "_<->_priority_<->_10", "plugins": ["y"]}]})"));
}

}  // namespace
}  // namespace bootforge::analyze
