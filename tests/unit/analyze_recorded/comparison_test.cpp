#include "analyze/recorded/comparison.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "analyze/recorded/boot_sample.h"
#include "analyze/recorded/rank_test.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

using test::boot;
using test::ran;

Side sideOf(const std::vector<std::int64_t>& runs) {
  Side side;
  for (const std::int64_t run : runs) side.add(boot({ran("a", 0, run), ran("fast", 0, 1)}));
  return side;
}

boost::json::value compared(const std::vector<std::int64_t>& before,
                            const std::vector<std::int64_t>& after, Limits limits = {},
                            int* status = nullptr) {
  const Answer answer =
      compare(sideOf(before), sideOf(after), limits, status != nullptr, Format::Json, {});
  if (status != nullptr) *status = answer.status;
  return test::read(answer);
}

TEST(RankTest, SeparatedSidesHaveTheLeastExactP) {
  EXPECT_NEAR(mannWhitneyP({1, 2, 3, 4, 5}, {6, 7, 8, 9, 10}), 2.0 / 252, 1e-12);
  EXPECT_NEAR(mannWhitneyP({6, 7, 8, 9, 10}, {1, 2, 3, 4, 5}), 2.0 / 252, 1e-12);
  EXPECT_NEAR(mannWhitneyP({1, 2}, {3, 4}), 2.0 / 6, 1e-12);
}

TEST(RankTest, OverlapAndTiesAreCountedExactly) {
  // Of 20 choices of three ranks out of six, 4 have a sum of at most 8 (123, 124, 125, 134).
  EXPECT_NEAR(mannWhitneyP({1, 2, 5}, {3, 4, 6}), 2.0 * 4 / 20, 1e-12);
  EXPECT_EQ(mannWhitneyP({7, 7, 7}, {7, 7}), 1);
  // Ranks 1.5 1.5 3 4: of 6 choices of two, one has the sum 3.
  EXPECT_NEAR(mannWhitneyP({1, 1}, {2, 3}), 2.0 / 6, 1e-12);
}

TEST(RankTest, ManyValuesAreApproximatedWell) {
  std::vector<std::int64_t> one;
  std::vector<std::int64_t> other;
  for (std::int64_t value = 0; value < 25; ++value) {
    one.push_back(value * 4);
    other.push_back(value * 4 + 21);
  }
  const double exact = mannWhitneyP(one, other);
  one.push_back(48);
  other.push_back(69);
  EXPECT_NEAR(mannWhitneyP(one, other), exact, 0.02);
  EXPECT_EQ(mannWhitneyP(std::vector<std::int64_t>(40, 5), std::vector<std::int64_t>(40, 5)), 1);
}

TEST(RankTest, EqualValuesNarrowTheApproximation) {
  std::vector<std::int64_t> one;
  std::vector<std::int64_t> other;
  for (std::int64_t value = 0; value < 40; ++value) one.push_back(value / 8);
  for (std::int64_t value = 0; value < 30; ++value) other.push_back(value / 8 + 1);
  // By the textbook's formula, corrected for ties and for continuity.
  EXPECT_NEAR(mannWhitneyP(one, other), 0.246111368492681, 1e-9);
  EXPECT_NEAR(mannWhitneyP(other, one), 0.246111368492681, 1e-9);
}

TEST(Median, EvenCountTakesTheMeanOfTheMiddle) {
  std::vector<std::int64_t> values = {9, 1, 4, 2};
  EXPECT_EQ(doubledMedian(values), 6);
  values = {3, 1, 2};
  EXPECT_EQ(doubledMedian(values), 4);
  EXPECT_EQ(halved(5), 3);
  EXPECT_EQ(halved(-5), -2);
}

TEST(Comparison, ASideOnWhichNothingRanIsSaid) {
  Side never;
  never.add(boot({{"a", 0, 0}}));
  const Answer answer = compare(sideOf({100}), never, {}, false, Format::Text, {});
  EXPECT_TRUE(answer.output.starts_with("Boot: nothing ran on one side\n")) << answer.output;
}

TEST(Comparison, MediansOfBothSidesAreCompared) {
  const boost::json::value answer = compared({100, 200, 300}, {220});
  EXPECT_EQ(answer.at("boot"),
            boost::json::parse(R"({"old": 200, "new": 220, "difference": 20, "percent": 1E1,
                                   "p": null, "significant": null})"));
  EXPECT_EQ(answer.at("plugins").at(0).at("name"), "a");
  EXPECT_EQ(answer.at("regressions"), boost::json::parse(R"(["boot", "a"])"));
}

TEST(Comparison, FiveBootsOnEachSideAreEnoughForP) {
  const boost::json::value answer = compared({1, 2, 3, 4, 5}, {2, 3, 4, 5, 6});
  EXPECT_FALSE(answer.at("boot").at("significant").as_bool());
  EXPECT_EQ(answer.at("regressions").as_array().size(), 0U) << "known to be noise";
  EXPECT_TRUE(compared({1, 2, 3, 4, 5}, {2, 3, 4, 5}).at("boot").at("p").is_null());
}

TEST(Comparison, GateLetsThroughWhatIsWithinItsLimits) {
  int status = -1;
  compared({1000}, {1100}, {10, 0}, &status);
  EXPECT_EQ(status, 0) << "10 % is not over 10 %";
  compared({1000}, {1101}, {10, 0}, &status);
  EXPECT_EQ(status, 1);
  compared({1000}, {1101}, {10, 101}, &status);
  EXPECT_EQ(status, 0) << "101 us are not over 101 us";
  compared({1000}, {1102}, {10, 101}, &status);
  EXPECT_EQ(status, 1);
  compared({1000}, {900}, {}, &status);
  EXPECT_EQ(status, 0);
}

TEST(Comparison, PluginOnOneSideIsListedAndNoRegression) {
  Side before;
  before.add(boot({ran("gone", 0, 10)}));
  Side after;
  after.add(boot({ran("new", 0, 10)}));
  const boost::json::value answer = test::read(compare(before, after, {}, true, Format::Json, {}));
  EXPECT_EQ(answer.at("regressions").as_array().size(), 0U);
  EXPECT_EQ(answer.at("plugins").at(0),
            boost::json::parse(
                R"({"name": "gone", "old": 10, "new": null, "difference": null, "percent": null,
          "p": null, "significant": null})"));
}

}  // namespace
}  // namespace bootforge::analyze
