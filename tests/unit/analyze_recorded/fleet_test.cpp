#include "analyze/recorded/fleet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "analyze/recorded/distribution.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

using ::bootforge::test::writeFile;
using testing::ElementsAre;

std::string logOf(int milliseconds) {
  const std::string end = "2024-03-05 07:04:1" + std::to_string(milliseconds / 1000) + "." +
                          std::to_string(1000 + milliseconds % 1000).substr(1) + "000";
  return "HVKernel Initialization Time: 1\n"
         "[2024-03-05 07:04:10.000000 - " +
         end +
         "] sysboot: net\n"
         "=== Bootforge configuration info ===\n Start: 2024-03-05 07:04:08.000000\n"
         " End: 2024-03-05 07:04:11.000000\n"
         " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 17\n";
}

class FleetOfHosts : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories("/fleet/rack"); }
  void TearDown() override { std::filesystem::remove_all("/fleet"); }

  static boost::json::value answer(const std::vector<std::string>& paths, bool byHost = false) {
    Fleet fleet(std::nullopt, false);
    for (const std::string& path : paths) EXPECT_TRUE(fleet.add(path)) << path;
    return test::read(fleet.answer(byHost, Format::Json, {}));
  }
};

TEST_F(FleetOfHosts, PercentilesAreValuesByNearestRank) {
  for (int boot = 1; boot <= 10; ++boot) {
    writeFile("/fleet/h" + std::to_string(boot) + ".log", logOf(boot * 100));
  }
  const boost::json::value told = answer({"/fleet"});
  EXPECT_EQ(told.at("boots"), 10);
  EXPECT_EQ(told.at("boot"), boost::json::parse(R"({"count": 10, "p50": 500000, "p90": 900000,
                                                   "p99": 1000000, "most": 1000000})"));
  EXPECT_EQ(told.at("plugins").at(0).at("name"), "net");
  EXPECT_TRUE(told.at("plugins").at(0).at("failures").is_null());
}

TEST_F(FleetOfHosts, HostIsTheFolderOrTheNameAndCountsWithItsMedian) {
  writeFile("/fleet/rack/one.log", logOf(100));
  writeFile("/fleet/rack/two.log", logOf(300));
  writeFile("/fleet/alone.log.gz", logOf(150));
  const boost::json::value told = answer({"/fleet"}, true);
  EXPECT_EQ(told.at("hosts").at(0).at("host"), "alone");
  EXPECT_EQ(told.at("hosts").at(1).at("host"), "rack");
  EXPECT_EQ(told.at("hosts").at(1).at("value"), 200000);
  EXPECT_EQ(answer({"/fleet/rack/one.log"}, true).at("hosts").at(0).at("host"), "one");
}

TEST_F(FleetOfHosts, WhatCannotBeReadIsCounted) {
  writeFile("/fleet/good.log", logOf(100));
  writeFile("/fleet/noise.log", "noise\n");
  writeFile("/fleet/empty.log", "");
  writeFile("/fleet/good.messages", "ignored as a log");
  EXPECT_EQ(answer({"/fleet"}).at("boots"), 1);
  EXPECT_EQ(answer({"/fleet"}).at("unreadable"), 2);
  Fleet fleet(std::nullopt, false);
  EXPECT_FALSE(fleet.add("/fleet/missing"));
  EXPECT_THAT(fleet.answer(false, Format::Json, {}).notes,
              ElementsAre("/fleet/missing: No such file or directory"));
}

TEST_F(FleetOfHosts, ThreeFilesThatCannotBeReadAreNamedInTheirOrder) {
  for (const char* name : {"d", "b", "e", "a", "c"}) {
    writeFile(std::string("/fleet/") + name + ".log", "noise\n");
  }
  Fleet fleet(std::nullopt, false);
  EXPECT_TRUE(fleet.add("/fleet"));
  EXPECT_THAT(
      fleet.answer(false, Format::Json, {}).notes,
      ElementsAre("/fleet/a.log: this is no profiling log",
                  "/fleet/b.log: this is no profiling log",
                  "/fleet/c.log: this is no profiling log", "and 2 more that cannot be read"));
}

TEST_F(FleetOfHosts, ADamagedLogIsCountedOnce) {
  writeFile("/fleet/good.log", logOf(100));
  writeFile("/fleet/noisy.log", "noise\n" + logOf(100) + "noise\n");
  const boost::json::value told = answer({"/fleet"});
  EXPECT_EQ(told.at("boots"), 2);
  EXPECT_EQ(told.at("damaged"), 1);
}

TEST_F(FleetOfHosts, FailuresComeFromTheMessagesBeside) {
  writeFile("/fleet/a.log", logOf(100));
  writeFile("/fleet/a.messages",
            "bootforge: Activating Bootforge plugin net.\n"
            "bootforge: Bootforge plugin net activation failed: x\n");
  writeFile("/fleet/b.log", logOf(100));
  EXPECT_EQ(answer({"/fleet"}).at("plugins").at(0).at("failures"), 1);
}

TEST_F(FleetOfHosts, HostThatStandsOutIsTold) {
  for (const auto& [host, time] : {std::pair("a", 100), std::pair("b", 110), std::pair("c", 120),
                                   std::pair("d", 130), std::pair("e", 900)}) {
    writeFile("/fleet/" + std::string(host) + ".log", logOf(time));
  }
  const boost::json::value told = answer({"/fleet"});
  ASSERT_EQ(told.at("outliers").as_array().size(), 1U);
  EXPECT_EQ(told.at("outliers").at(0).at("host"), "e");
  EXPECT_EQ(told.at("outliers").at(0).at("value"), 900000);
  // Median 120, deviations 20 10 0 10 780: their median is 10.
  EXPECT_DOUBLE_EQ(told.at("outliers").at(0).at("score").as_double(), 0.6745 * 78);
}

TEST(Distribution, OneValueIsEveryPercentile) {
  std::vector<std::int64_t> values = {7};
  const Distribution one = distributionOf(values);
  EXPECT_EQ(one.p50, 7);
  EXPECT_EQ(one.p99, 7);
  std::vector<std::int64_t> none;
  EXPECT_EQ(distributionOf(none).count, 0U);
}

TEST(Distribution, AgreesWithASortedList) {
  for (std::size_t count = 1; count < 250; ++count) {
    std::vector<std::int64_t> values;
    for (std::size_t place = 0; place < count; ++place) {
      values.push_back(static_cast<std::int64_t>(place * 7919 % 1009));
    }
    std::vector<std::int64_t> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    const auto rank = [&](double share) {
      return sorted[static_cast<std::size_t>(std::ceil(share * static_cast<double>(count) - 1e-9)) -
                    1];
    };
    const Distribution told = distributionOf(values);
    EXPECT_EQ(told.p50, rank(0.5)) << count;
    EXPECT_EQ(told.p90, rank(0.9)) << count;
    EXPECT_EQ(told.p99, rank(0.99)) << count;
    EXPECT_EQ(told.most, sorted.back()) << count;
  }
}

}  // namespace
}  // namespace bootforge::analyze
