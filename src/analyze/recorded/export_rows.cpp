#include "analyze/recorded/export_rows.h"

#include <boost/json/serialize.hpp>
#include <string_view>

#include "analyze/output/json_output.h"
#include "analyze/recorded/rows.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

std::string csvField(const json::value& value) {
  if (value.is_null()) return {};
  if (!value.is_string()) return json::serialize(value);
  const std::string_view text = value.get_string();
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string field = "\"";
  for (const char character : text) {
    if (character == '"') field += '"';
    field += character;
  }
  return field + '"';
}

}  // namespace

std::string asCsv(const Timeline& timeline) {
  std::string text;
  for (const auto& heading : rowOf(TimedPlugin())) {
    text += (text.empty() ? "" : ",") + std::string(heading.key());
  }
  text += '\n';
  for (const TimedPlugin& plugin : timeline.plugins) {
    const char* separator = "";
    for (const auto& field : rowOf(plugin)) {
      text += separator + csvField(field.value());
      separator = ",";
    }
    text += '\n';
  }
  return text;
}

std::string asJsonLines(const Timeline& timeline) {
  std::string text;
  for (const TimedPlugin& plugin : timeline.plugins) text += lineOf(rowOf(plugin));
  return text;
}

std::string asTraceEvents(const Timeline& timeline) {
  constexpr std::int64_t kProcess = 1;
  // Of thread 0 readers make none, or the idle one.
  constexpr std::int64_t kFirstWorker = 1;
  const bool isBoot = timeline.kind == ProfileSection::Kind::Boot;
  json::array events;
  const auto addName = [&](const char* what, std::int64_t thread, const std::string& name) {
    // Readers that ask every event for its category and its moment ask these, too.
    events.emplace_back(json::object{{"name", what},
                                     {"cat", "__metadata"},
                                     {"ph", "M"},
                                     {"ts", 0},
                                     {"pid", kProcess},
                                     {"tid", thread},
                                     {"args", json::object{{"name", jsonText(name)}}}});
  };
  addName("process_name", kFirstWorker, isBoot ? "bootforge boot" : "bootforge daemons");
  for (std::size_t worker = 0; worker < timeline.workers; ++worker) {
    addName("thread_name", kFirstWorker + static_cast<std::int64_t>(worker),
            "worker " + std::to_string(worker));
  }
  for (const TimedPlugin& plugin : timeline.plugins) {
    if (!plugin.ran) continue;
    events.emplace_back(
        json::object{{"name", jsonText(plugin.name)},
                     {"cat", isBoot ? "plugin" : "script"},
                     {"ph", "X"},
                     {"ts", plugin.start},
                     {"dur", plugin.run},
                     {"pid", kProcess},
                     {"tid", kFirstWorker + static_cast<std::int64_t>(plugin.worker)},
                     {"args", rowOf(plugin)}});
  }
  return lineOf({{"traceEvents", std::move(events)},
                 {"displayTimeUnit", "ms"},
                 {"otherData", json::object{{"start_us", timeline.start},
                                            {"makespan_us", timeline.makespan},
                                            {"workers", timeline.workers}}}});
}

}  // namespace bootforge::analyze
