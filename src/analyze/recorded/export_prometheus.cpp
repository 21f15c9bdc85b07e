#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <vector>

#include "analyze/recorded/export_rows.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

std::string seconds(std::int64_t microseconds) {
  const char* const sign = microseconds < 0 ? "-" : "";
  const std::int64_t size = microseconds < 0 ? -microseconds : microseconds;
  return fmt::format("{}{}.{:06}", sign, size / 1'000'000, size % 1'000'000);
}

std::string labelValue(std::string_view text) {
  std::string value;
  for (const char character : validUtf8(text)) {
    if (character == '\n') {
      value += "\\n";
      continue;
    }
    if (character == '\\' || character == '"') value += '\\';
    value += character;
  }
  return value;
}

/// The labels that name each plugin. A series must not come twice: the second plugin of a name, and
/// those behind it, are numbered.
std::vector<std::string> labelsOf(const Timeline& timeline) {
  std::map<std::string, int> seen;
  std::vector<std::string> labels;
  for (const TimedPlugin& plugin : timeline.plugins) {
    const std::string name = labelValue(plugin.name);
    const int number = ++seen[name];
    labels.push_back(fmt::format("plugin=\"{}\"", name));
    if (number > 1) labels.back() += fmt::format(",number=\"{}\"", number);
  }
  return labels;
}

class Metrics {
 public:
  void head(const char* name, const char* help) {
    text_ += fmt::format("# HELP {0} {1}\n# TYPE {0} gauge\n", name, help);
  }
  void value(const char* name, const std::string& labels, const std::string& value) {
    text_ += labels.empty() ? fmt::format("{} {}\n", name, value)
                            : fmt::format("{}{{{}}} {}\n", name, labels, value);
  }
  void single(const char* name, const char* help, const std::string& amount) {
    head(name, help);
    value(name, "", amount);
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace

std::string asPrometheus(const Timeline& timeline) {
  Metrics metrics;
  if (timeline.workers > 0) {
    metrics.single("bootforge_boot_seconds",
                   "From the start of the first plugin to the end of the last one.",
                   seconds(timeline.makespan));
    metrics.single("bootforge_boot_timestamp_seconds", "When the first plugin started.",
                   seconds(timeline.start));
    metrics.single("bootforge_boot_workers", "How many plugins ran at one time, at most.",
                   std::to_string(timeline.workers));
  }
  if (timeline.kernelMicroseconds) {
    metrics.single("bootforge_kernel_seconds", "The kernel's uptime when the run began.",
                   seconds(*timeline.kernelMicroseconds));
  }
  const std::vector<std::string> labels = labelsOf(timeline);
  constexpr const char* kSeconds = "bootforge_plugin_seconds";
  metrics.head(kSeconds, "How long each plugin that ran took.");
  for (std::size_t index = 0; index < labels.size(); ++index) {
    const TimedPlugin& plugin = timeline.plugins[index];
    if (!plugin.ran) continue;
    metrics.value(kSeconds, fmt::format("{},result=\"{}\"", labels[index], textOf(plugin.result)),
                  seconds(plugin.run));
  }
  constexpr const char* kFailed = "bootforge_plugin_failed";
  metrics.head(kFailed, "1 for a plugin whose activation is known to have failed.");
  for (std::size_t index = 0; index < labels.size(); ++index) {
    const bool failed = timeline.plugins[index].result == TimedPlugin::Result::Failed;
    metrics.value(kFailed, labels[index], failed ? "1" : "0");
  }
  return metrics.text();
}

}  // namespace bootforge::analyze
