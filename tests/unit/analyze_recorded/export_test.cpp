#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "analyze/recorded/boot_summary.h"
#include "analyze/recorded/export_rows.h"
#include "analyze/recorded/plot.h"
#include "analyze/recorded/text_table.h"
#include "tests/unit/analyze_recorded/recorded_boot.h"

namespace bootforge::analyze {
namespace {

using test::boot;
using test::kBegin;
using test::ran;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A failed plugin with an odd name, one that went well, and one that never ran.
Timeline sample() {
  BootMessages messages;
  messages.plugins["odd,\"\n<\\"] = {true, "", PluginMessages::Outcome::Failed, "no, \xFF"};
  messages.plugins["b"].outcome = PluginMessages::Outcome::Activated;
  return makeTimeline(boot({ran("odd,\"\n<\\", 0, 1'500'000), ran("b", 10, 20), {"never", 0, 0}}),
                      {}, &messages);
}

TEST(Export, CsvQuotesWhatNeedsIt) {
  EXPECT_EQ(asCsv(sample()),
            "name,start,end,run,wait_milestones,wait_worker,wait_executor,work,worker,slack,result,"
            "reason\n"
            "\"odd,\"\"\n<\\\",0,1500000,1500000,0,0,0,1500000,0,0,failed,\"no, \uFFFD\"\n"
            "b,10,20,10,0,10,0,10,1,1499980,activated,\n"
            "never,,,,,,,,,,never,\n");
}

TEST(Export, EachJsonLineIsAnObject) {
  const std::string text = asJsonLines(sample());
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
  EXPECT_EQ(boost::json::parse(text.substr(0, text.find('\n'))).at("reason"), "no, \uFFFD");
}

TEST(Export, TraceHasAnEventForEachPluginThatRan) {
  const boost::json::value trace = boost::json::parse(asTraceEvents(sample()));
  int complete = 0;
  for (const auto& event : trace.at("traceEvents").as_array()) {
    if (event.at("ph") != "X") continue;
    ++complete;
    if (event.at("name") == "b") {
      EXPECT_EQ(event.at("ts"), 10);
      EXPECT_EQ(event.at("dur"), 10);
      EXPECT_EQ(event.at("tid"), 2) << "there is no thread 0";
    }
  }
  EXPECT_EQ(complete, 2);
}

TEST(Export, TraceNamesEachWorkersThread) {
  std::map<std::int64_t, std::string> names;
  const boost::json::value trace = boost::json::parse(asTraceEvents(sample()));
  for (const auto& event : trace.at("traceEvents").as_array()) {
    if (event.at("name") != "thread_name") continue;
    names[event.at("tid").as_int64()] = event.at("args").at("name").as_string();
  }
  EXPECT_THAT(names, ElementsAre(std::pair(1, "worker 0"), std::pair(2, "worker 1")));
}

TEST(Export, SpansHangBelowTheBoot) {
  const boost::json::value otlp = boost::json::parse(asOtlp(sample()));
  const auto& spans = otlp.at("resourceSpans").at(0).at("scopeSpans").at(0).at("spans").as_array();
  ASSERT_EQ(spans.size(), 3U);
  EXPECT_EQ(spans[0].at("name"), "boot");
  EXPECT_EQ(spans[0].at("startTimeUnixNano").as_string(), std::to_string(kBegin) + "000");
  EXPECT_EQ(spans[0].at("traceId").as_string().size(), 32U);
  EXPECT_EQ(spans[0].at("spanId").as_string().size(), 16U);
  for (std::size_t index = 1; index < spans.size(); ++index) {
    EXPECT_EQ(spans[index].at("parentSpanId"), spans[0].at("spanId"));
    EXPECT_EQ(spans[index].at("traceId"), spans[0].at("traceId"));
    EXPECT_NE(spans[index].at("spanId"), spans[0].at("spanId"));
  }
  EXPECT_EQ(spans[1].at("status"),
            boost::json::parse("{\"code\": 2, \"message\": \"no, \uFFFD\"}"));
  EXPECT_EQ(asOtlp(sample()), asOtlp(sample())) << "identities do not change";
}

TEST(Export, PrometheusTellsEachPluginOnce) {
  const std::string text = asPrometheus(sample());
  EXPECT_THAT(text, HasSubstr("\nbootforge_boot_seconds 1.500000\n"));
  EXPECT_THAT(text, HasSubstr("\nbootforge_boot_timestamp_seconds 1709622249.000000\n"));
  EXPECT_THAT(text, HasSubstr("\nbootforge_plugin_seconds{plugin=\"odd,\\\"\\n<\\\\\","
                              "result=\"failed\"} 1.500000\n"));
  EXPECT_THAT(text, HasSubstr("\nbootforge_plugin_failed{plugin=\"b\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("\nbootforge_plugin_failed{plugin=\"never\"} 0\n"));
  EXPECT_THAT(text, Not(HasSubstr("bootforge_plugin_seconds{plugin=\"never\"")));
  const std::string twins =
      asPrometheus(makeTimeline(boot({ran("x", 0, 1), ran("x", 0, 2)}), {}, nullptr));
  EXPECT_THAT(twins, HasSubstr("bootforge_plugin_failed{plugin=\"x\"} 0\n"));
  EXPECT_THAT(twins, HasSubstr("bootforge_plugin_failed{plugin=\"x\",number=\"2\"} 0\n"));
}

TEST(Plot, HoldsNamesAsTextAndNothingFromElsewhere) {
  const std::string picture = plot(sample()).output;
  EXPECT_THAT(picture, HasSubstr("odd,&quot;\\x0a&lt;\\</text>"));
  EXPECT_THAT(picture, Not(HasSubstr("<script")));
  EXPECT_THAT(picture, Not(HasSubstr("href")));
  EXPECT_THAT(plot(makeTimeline(boot({}), {}, nullptr)).output, HasSubstr("nothing ran"));
}

TEST(Plot, EscapesWhatMeansSomethingInXml) {
  const Timeline timeline = makeTimeline(boot({ran("a>b&c<d\"", 0, 1)}), {}, nullptr);
  EXPECT_THAT(plot(timeline).output, HasSubstr("a&gt;b&amp;c&lt;d&quot;</text>"));
}

/// How many moments the axis of a boot of so many microseconds has.
std::size_t momentsOnTheAxis(std::int64_t length) {
  const std::string picture = plot(makeTimeline(boot({ran("a", 0, length)}), {}, nullptr)).output;
  constexpr std::string_view kMoment = "<line class=\"grid\"";
  std::size_t count = 0;
  for (std::size_t at = picture.find(kMoment); at != std::string::npos;
       at = picture.find(kMoment, at + 1)) {
    ++count;
  }
  return count;
}

TEST(Plot, HasAboutTenMomentsOnItsAxis) {
  EXPECT_EQ(momentsOnTheAxis(1), 2U);
  EXPECT_EQ(momentsOnTheAxis(10), 11U);
  EXPECT_EQ(momentsOnTheAxis(12), 7U) << "a step of two";
  EXPECT_EQ(momentsOnTheAxis(40), 9U) << "a step of five";
  EXPECT_EQ(momentsOnTheAxis(100), 11U);
  EXPECT_EQ(momentsOnTheAxis(1'000'000), 11U);
}

TEST(Plot, HasTheFirstLineOfTheSummaryAsItsTitle) {
  const std::string summary = bootSummary(sample(), {});
  const std::string title = summary.substr(0, summary.find('\n'));
  const std::string picture = plot(sample()).output;
  EXPECT_THAT(picture, HasSubstr("<title>" + title + "</title>\n<style>"));
  EXPECT_THAT(picture, HasSubstr(" y=\"26\">" + title + "</text>\n"));
}

TEST(People, ReadDurationsInUnits) {
  EXPECT_EQ(duration(0), "0");
  EXPECT_EQ(duration(999), "999 µs");
  EXPECT_EQ(duration(1'000), "1.00 ms");
  EXPECT_EQ(duration(12'345), "12.3 ms");
  EXPECT_EQ(duration(999'499), "999 ms");
  EXPECT_EQ(duration(999'500), "1.00 s");
  EXPECT_EQ(duration(99'949'999), "99.9 s");
  EXPECT_EQ(duration(99'950'000), "1 min 40 s");
  EXPECT_EQ(duration(3'599'499'999), "59 min 59 s");
  EXPECT_EQ(duration(3'600'000'000), "1 h 0 min");
  EXPECT_EQ(signedDuration(-1'500), "-1.50 ms");
  EXPECT_EQ(signedDuration(1'500), "+1.50 ms");
}

TEST(People, LongNamesAreCutToTheirColumn) {
  EXPECT_EQ(fitted("network", 7), "network");
  EXPECT_EQ(fitted("networks", 7), "networ…");
  EXPECT_EQ(fitted("日本語テスト", 6), "日本…");
}

}  // namespace
}  // namespace bootforge::analyze
