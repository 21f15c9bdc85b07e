#include "analyze/recorded/plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/recorded/boot_summary.h"
#include "analyze/recorded/critical_chain.h"
#include "analyze/recorded/text_table.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

// In pixels.
constexpr double kRow = 18;
constexpr double kBar = 12;
constexpr double kMargin = 16;
constexpr double kChart = 1000;
constexpr double kLetter = 7.5;
constexpr double kHead = 76;
constexpr double kFoot = 32;

// Colours for light and for dark backgrounds: the picture follows the reader's setting where a
// viewer knows of one, and is light on paper. Without variables, which not every viewer knows.
constexpr std::string_view kStyle = R"(<style>
text { font: 12px system-ui, "DejaVu Sans", sans-serif; fill: #1c1c1e; }
.title { font-size: 15px; font-weight: 600; } .axis { font-size: 11px; fill: #5f6068; }
.ground { fill: #ffffff; } .grid { stroke: #d8d8dc; }
.run { fill: #3b7dd8; } .chain { fill: #d9622b; } .failed { fill: #c4233b; } .wait { fill: #b9c6d8; }
.on-chain { font-weight: 600; }
@media screen and (prefers-color-scheme: dark) {
  text { fill: #e6e6ea; } .axis { fill: #a3a6b0; }
  .ground { fill: #16181c; } .grid { stroke: #363a42; }
  .run { fill: #5b9bf0; } .chain { fill: #f08a4b; } .failed { fill: #ff5f74; }
  .wait { fill: #4a5566; } }
</style>
)";

/// Two characters that may not stand in XML, even though they are UTF-8.
std::string withoutNonCharacters(std::string text) {
  for (const std::string_view forbidden : {"\uFFFE", "\uFFFF"}) {
    for (std::size_t place = text.find(forbidden); place != std::string::npos;
         place = text.find(forbidden, place)) {
      text.replace(place, forbidden.size(), "\uFFFD");
    }
  }
  return text;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char character : withoutNonCharacters(printable(text))) {
    switch (character) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += character;
    }
  }
  return result;
}

/// A step of 1, 2 or 5 times a power of ten that makes about ten of a whole.
std::int64_t stepFor(std::int64_t whole) {
  std::int64_t step = 1;
  while (true) {
    for (const std::int64_t factor : {1, 2, 5}) {
      if (whole / (step * factor) <= 10) return step * factor;
    }
    step *= 10;
  }
}

class Plot {
 public:
  explicit Plot(const Timeline& timeline)
      : timeline_(timeline), isOnChain_(timeline.plugins.size()) {
    for (std::size_t index = 0; index < timeline.plugins.size(); ++index) {
      if (timeline.plugins[index].ran) order_.push_back(index);
    }
    std::stable_sort(order_.begin(), order_.end(), [&](std::size_t one, std::size_t other) {
      const TimedPlugin& a = timeline.plugins[one];
      const TimedPlugin& b = timeline.plugins[other];
      return a.start != b.start ? a.start < b.start : a.name < b.name;
    });
    for (const ChainLink& link : criticalChain(timeline)) isOnChain_[link.plugin] = true;
    std::size_t longest = 8;
    for (const std::size_t index : order_) {
      longest = std::max(longest, displayWidth(printable(timeline.plugins[index].name)));
    }
    names_ = std::min(320.0, kLetter * static_cast<double>(longest) + kMargin);
  }

  std::string draw() {
    const double width = names_ + kChart + 2 * kMargin + 96;
    const double height = kHead + kRow * static_cast<double>(order_.size()) + kFoot;
    text_ = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0:.0f} {1:.0f}\" "
        "width=\"{0:.0f}\" "
        "height=\"{1:.0f}\" role=\"img\">\n",
        width, height);
    const std::string summary = bootSummary(timeline_, {});
    const std::string title = summary.substr(0, summary.find('\n'));
    text_ += fmt::format("<title>{}</title>\n{}", escaped(title), kStyle);
    text_ +=
        fmt::format("<rect class=\"ground\" width=\"{:.0f}\" height=\"{:.0f}\"/>\n", width, height);
    text_ +=
        fmt::format("<text class=\"title\" x=\"{}\" y=\"26\">{}</text>\n", kMargin, escaped(title));
    drawLegend();
    drawAxis(height);
    for (std::size_t row = 0; row < order_.size(); ++row) drawRow(order_[row], row);
    return text_ + "</svg>\n";
  }

 private:
  double x(std::int64_t moment) const {
    const std::int64_t whole = std::max<std::int64_t>(1, timeline_.makespan);
    return kMargin + names_ + kChart * static_cast<double>(moment) / static_cast<double>(whole);
  }

  void rectangle(const char* kind, double left, double right, double top) {
    text_ +=
        fmt::format("<rect class=\"{}\" x=\"{:.2f}\" y=\"{:.1f}\" width=\"{:.2f}\" height=\"{}\"/>",
                    kind, left, top, std::max(0.75, right - left), kBar);
  }

  void drawLegend() {
    double left = kMargin;
    for (const auto& [kind, label] :
         {std::pair("run", "ran"), std::pair("chain", "on the critical chain"),
          std::pair("failed", "failed"), std::pair("wait", "waited for a worker")}) {
      rectangle(kind, left, left + kBar, 38);
      text_ +=
          fmt::format("<text class=\"axis\" x=\"{}\" y=\"48\">{}</text>\n", left + kBar + 5, label);
      left += 50 + 6.5 * static_cast<double>(std::string_view(label).size());
    }
  }

  void drawAxis(double height) {
    const std::int64_t step = stepFor(timeline_.makespan);
    for (std::int64_t moment = 0; moment <= timeline_.makespan; moment += step) {
      text_ += fmt::format(
          "<line class=\"grid\" x1=\"{0:.2f}\" x2=\"{0:.2f}\" y1=\"{1}\" y2=\"{2:.0f}\"/>"
          "<text class=\"axis\" text-anchor=\"middle\" x=\"{0:.2f}\" y=\"{3}\">{5}</text>"
          "<text class=\"axis\" text-anchor=\"middle\" x=\"{0:.2f}\" y=\"{4:.0f}\">{5}</text>\n",
          x(moment), kHead - 4, height - kFoot, kHead - 8, height - kFoot + 15, duration(moment));
    }
  }

  void drawRow(std::size_t index, std::size_t row) {
    const TimedPlugin& plugin = timeline_.plugins[index];
    const double top = kHead + kRow * static_cast<double>(row);
    const char* kind = "run";
    if (isOnChain_[index]) kind = "chain";
    if (plugin.result == TimedPlugin::Result::Failed) kind = "failed";
    std::string about = fmt::format(
        "{}: started at {}, ran {} on worker {}; waited {} for milestones, {} for a worker, {} for "
        "the executor; slack {}",
        printable(plugin.name), duration(plugin.start), duration(plugin.run), plugin.worker,
        duration(plugin.waitMilestones), duration(plugin.waitWorker), duration(plugin.waitExecutor),
        duration(plugin.slack));
    if (!plugin.reason.empty()) about += "; failed: " + plugin.reason;
    const double baseline = top + kBar - 2;
    text_ += fmt::format("<g><title>{}</title>", escaped(about));
    const std::string name = fitted(plugin.name, static_cast<std::size_t>((names_ - 8) / kLetter));
    text_ += fmt::format("<text{} text-anchor=\"end\" x=\"{:.1f}\" y=\"{:.1f}\">{}</text>",
                         isOnChain_[index] ? " class=\"on-chain\"" : "", kMargin + names_ - 8,
                         baseline, escaped(name));
    if (plugin.waitWorker > 0) {
      rectangle("wait", x(plugin.start - plugin.waitWorker), x(plugin.start), top);
    }
    rectangle(kind, x(plugin.start), x(plugin.end), top);
    // Colours alone do not tell it, on paper for one.
    const char* const failed = plugin.result == TimedPlugin::Result::Failed ? ", failed" : "";
    text_ += fmt::format("<text class=\"axis\" x=\"{:.2f}\" y=\"{:.1f}\">{}{}</text></g>\n",
                         x(plugin.end) + 5, baseline, duration(plugin.run), failed);
  }

  const Timeline& timeline_;
  std::vector<std::size_t> order_;  // of the rows
  std::vector<bool> isOnChain_;
  double names_ = 0;  // the width of the column of names
  std::string text_;
};

}  // namespace

Answer plot(const Timeline& timeline) {
  Answer answer;
  answer.output = Plot(timeline).draw();
  return answer;
}

}  // namespace bootforge::analyze
