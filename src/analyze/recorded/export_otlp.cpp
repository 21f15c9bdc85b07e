#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <cstdint>
#include <string_view>

#include "analyze/output/json_output.h"
#include "analyze/recorded/export_rows.h"
#include "analyze/recorded/rows.h"
#include "util/version.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

/// Identities that are the same whenever the same boot is exported (FNV-1a).
class Identity {
 public:
  explicit Identity(std::uint64_t seed) : value_(0xCBF29CE484222325U ^ seed) {}
  Identity& add(std::string_view text) {
    for (const char character : text) {
      value_ = (value_ ^ static_cast<unsigned char>(character)) * 0x100000001B3U;
    }
    return *this;
  }
  /// Sixteen hexadecimal digits, never all zero.
  std::string text() const { return fmt::format("{:016x}", value_ == 0 ? 1 : value_); }

 private:
  std::uint64_t value_;
};

json::object attribute(const char* key, json::string value) {
  return {{"key", key}, {"value", json::object{{"stringValue", std::move(value)}}}};
}

json::object attribute(const char* key, std::int64_t value) {
  // 64-bit numbers are strings in this encoding.
  return {{"key", key}, {"value", json::object{{"intValue", std::to_string(value)}}}};
}

std::string nanoseconds(const Timeline& timeline, std::int64_t moment) {
  return std::to_string(timeline.start + moment) + "000";
}

json::object statusOf(const TimedPlugin& plugin) {
  constexpr int kOk = 1;
  constexpr int kError = 2;
  if (plugin.result == TimedPlugin::Result::Failed) {
    return {{"code", kError}, {"message", jsonText(plugin.reason)}};
  }
  if (plugin.result == TimedPlugin::Result::Activated) return {{"code", kOk}};
  return {};
}

json::array attributesOf(const TimedPlugin& plugin) {
  return {attribute("bootforge.result", textOf(plugin.result)),
          attribute("bootforge.worker", static_cast<std::int64_t>(plugin.worker)),
          attribute("bootforge.wait_milestones_us", plugin.waitMilestones),
          attribute("bootforge.wait_worker_us", plugin.waitWorker),
          attribute("bootforge.wait_executor_us", plugin.waitExecutor),
          attribute("bootforge.work_us", plugin.work),
          attribute("bootforge.slack_us", plugin.slack)};
}

}  // namespace

std::string asOtlp(const Timeline& timeline) {
  constexpr int kInternal = 1;
  const bool isBoot = timeline.kind == ProfileSection::Kind::Boot;
  std::string names;
  for (const TimedPlugin& plugin : timeline.plugins) {
    names += plugin.name + '\0' + std::to_string(plugin.start) + '\0';
  }
  const std::string moment = std::to_string(timeline.start);
  const std::string trace =
      Identity(1).add(moment).add(names).text() + Identity(2).add(moment).add(names).text();
  const std::string root = Identity(3).add(moment).add(names).text();
  json::array spans;
  if (timeline.workers > 0) {
    spans.emplace_back(json::object{
        {"traceId", trace},
        {"spanId", root},
        {"parentSpanId", ""},
        {"name", isBoot ? "boot" : "daemons"},
        {"kind", kInternal},
        {"startTimeUnixNano", nanoseconds(timeline, 0)},
        {"endTimeUnixNano", nanoseconds(timeline, timeline.makespan)},
        {"attributes",
         json::array{attribute("bootforge.workers", static_cast<std::int64_t>(timeline.workers))}},
        {"status", json::object()}});
  }
  for (std::size_t index = 0; index < timeline.plugins.size(); ++index) {
    const TimedPlugin& plugin = timeline.plugins[index];
    if (!plugin.ran) continue;
    spans.emplace_back(
        json::object{{"traceId", trace},
                     {"spanId", Identity(4 + index).add(moment).add(names).add(plugin.name).text()},
                     {"parentSpanId", root},
                     {"name", jsonText(plugin.name)},
                     {"kind", kInternal},
                     {"startTimeUnixNano", nanoseconds(timeline, plugin.start)},
                     {"endTimeUnixNano", nanoseconds(timeline, plugin.end)},
                     {"attributes", attributesOf(plugin)},
                     {"status", statusOf(plugin)}});
  }
  json::object scope{{"name", "bootforge-analyze"}, {"version", version()}};
  json::object resource{{"attributes", json::array{attribute("service.name", "bootforge")}}};
  json::array scopes{json::object{{"scope", std::move(scope)}, {"spans", std::move(spans)}}};
  json::array resources{
      json::object{{"resource", std::move(resource)}, {"scopeSpans", std::move(scopes)}}};
  return lineOf({{"resourceSpans", std::move(resources)}});
}

}  // namespace bootforge::analyze
