#include "analyze/report/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/json/serialize.hpp>

#include "analyze/recorded/blame.h"
#include "analyze/report/report_data.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;
using test::boot;
using test::kBegin;
using test::native;
using test::ran;
using test::script;
using testing::HasSubstr;
using testing::StartsWith;

struct Sample {
  std::vector<KnownPlugin> known = {native("late", {"M", "gone"}), native("unused"),
                                    test::described("early", {}, {"M"})};
  BootMessages messages;
  Timeline timeline;

  Sample() {
    PluginMessages& failed = messages.plugins["late"];
    failed.outcome = PluginMessages::Outcome::Failed;
    failed.reason = "no, \xFF";
    failed.messages = {{"7.5", "Activating"}, {"", "no, \xFF"}};
    known[1].leftOut = "disabled";
    timeline = makeTimeline(boot({ran("late", 110, 150), {"never", 0, 0}, ran("early", 0, 100)}),
                            known, &messages);
  }

  json::object data() const { return reportData(timeline, known, &messages); }
};

TEST(ReportData, PluginsAreTheRowsOfBlameByStart) {
  const Sample sample;
  const json::value blamed =
      test::read(blame(sample.timeline, BlameOrder::Start, Format::Json, {}));
  const json::object data = sample.data();
  EXPECT_EQ(data.at("boot"), blamed.at("boot"));
  const json::array& plugins = data.at("plugins").as_array();
  ASSERT_EQ(plugins.size(), 3U);
  for (std::size_t index = 0; index < plugins.size(); ++index) {
    for (const auto& [key, value] : blamed.at("plugins").at(index).as_object()) {
      EXPECT_EQ(plugins[index].at(key), value) << key;
    }
  }
  EXPECT_EQ(plugins[0].at("name"), "early");
}

TEST(ReportData, TellsWhatRowsOfBlameDoNot) {
  const json::array plugins = Sample().data().at("plugins").as_array();
  json::object late = plugins[1].as_object();
  ASSERT_EQ(late.at("name"), "late");
  EXPECT_EQ(late.at("kind"), "native");
  EXPECT_EQ(late.at("executor"), false);
  EXPECT_EQ(late.at("requires"), json::parse("[0, 1]"));
  EXPECT_EQ(late.at("levels"), 0);
  EXPECT_EQ(late.at("provides"), json::array());
  EXPECT_EQ(late.at("saves"), json::parse(R"({"half": 20, "none": 40, "native": null})"));
  EXPECT_EQ(late.at("messages"),
            json::parse("[[\"7.5\", \"Activating\"], [\"\", \"no, \uFFFD\"]]"));
  EXPECT_EQ(plugins[0].at("provides"), json::parse("[0]"));
  EXPECT_EQ(plugins[0].at("executor"), true);
  EXPECT_EQ(plugins[0].at("saves").at("native"), 0);
  EXPECT_EQ(plugins[2].at("kind"), json::value()) << "there is no description";
  EXPECT_EQ(plugins[2].at("saves"), json::value());
}

TEST(ReportData, TellsOfTheBoot) {
  const json::object data = Sample().data();
  EXPECT_EQ(data.at("gates"), json::parse(R"(["M", "gone"])"));
  EXPECT_EQ(data.at("chain"), json::parse(R"([
      {"name": "early", "start": 0, "run": 100, "gap": 0, "after": null, "plugin": 0},
      {"name": "late", "start": 110, "run": 40, "gap": 10, "plugin": 1,
       "after": {"kind": "milestone", "name": "early", "milestone": "M", "plugin": 0}}])"));
  EXPECT_EQ(data.at("absent"), json::parse(R"([{"name": "unused", "reason": "disabled"}])"));
  EXPECT_EQ(data.at("model").at("makespan"), 140);
  EXPECT_NEAR(data.at("model").at("error").as_double(), -10.0 / 150, 1e-12);
  EXPECT_EQ(data.at("summary"),
            "Boot of 2024-03-05 07:04:09 UTC: 150 µs on 1 worker, after 5.00 s of kernel");
  EXPECT_EQ(data.at("is_daemon_run"), false);
  EXPECT_EQ(data.at("has_messages"), true);
  EXPECT_EQ(data.at("notes"), json::array());
}

TEST(ReportData, ScriptsWaitForLowerLevels) {
  const std::vector<KnownPlugin> known = {script("first", 10), script("second", 20)};
  ProfileSection section = boot({ran("first", 0, 10), ran("second", 5, 30)});
  section.kind = ProfileSection::Kind::Daemon;
  const json::object data = reportData(makeTimeline(section, known, nullptr), known, nullptr);
  EXPECT_EQ(data.at("plugins").at(1).at("levels"), 1);
  EXPECT_EQ(data.at("plugins").at(1).at("requires"), json::array());
  EXPECT_EQ(data.at("plugins").at(1).at("provides"), json::parse("[1]"));
  EXPECT_EQ(data.at("is_daemon_run"), true);
  EXPECT_EQ(data.at("has_messages"), false);
  EXPECT_THAT(data.at("notes").at(0).as_string(), HasSubstr("for which it waits"));
}

TEST(Report, IsOnePageThatNoNameCanEnd) {
  const Timeline timeline =
      makeTimeline(boot({ran("</script><!--<script>@program@", 0, 10)}), {}, nullptr);
  const std::string page = report(timeline, {}, nullptr).output;
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>\n"));
  EXPECT_TRUE(page.ends_with("</html>\n"));
  EXPECT_THAT(page, HasSubstr("\\u003c/script>\\u003c!--\\u003cscript>@program@"));
  EXPECT_THAT(page, HasSubstr("<title>Boot of 2024-03-05 07:04:09 UTC: 10 µs on 1 worker"));
  EXPECT_THAT(page, testing::Not(HasSubstr("@data@")));
}

}  // namespace
}  // namespace bootforge::analyze
