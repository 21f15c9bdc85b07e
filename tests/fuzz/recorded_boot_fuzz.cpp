// Any bytes as a profiling log, compressed or with a capture of the same boot's messages behind a
// zero byte, beside an image in which everybody waits for everybody. What is worked out must hold
// together.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/recorded/critical_chain.h"
#include "analyze/recorded/gzip_text.h"
#include "analyze/recorded/messages_reader.h"
#include "analyze/recorded/profiling_log_reader.h"
#include "analyze/recorded/timeline.h"

namespace {

using namespace bootforge::analyze;

void require(bool condition) {
  if (!condition) std::abort();
}

/// Names that the corpus uses, with a milestone between each and the next, the last and the first.
std::vector<KnownPlugin> image() {
  const std::vector<std::string> names = {"a", "b", "c", "two\nlines"};
  std::vector<KnownPlugin> plugins;
  for (std::size_t index = 0; index < names.size(); ++index) {
    KnownPlugin& plugin = plugins.emplace_back();
    plugin.name = names[index];
    plugin.hasCommands = index % 2 == 0;
    plugin.required = {"m" + std::to_string(index)};
    plugin.provided = {"m" + std::to_string((index + 1) % names.size())};
  }
  return plugins;
}

void check(const Timeline& timeline) {
  std::size_t ran = 0;
  for (const TimedPlugin& plugin : timeline.plugins) {
    if (!plugin.ran) continue;
    ++ran;
    require(plugin.start >= 0 && plugin.start <= plugin.end && plugin.end <= timeline.makespan);
    require(plugin.slack >= 0 && plugin.end + plugin.slack <= timeline.makespan);
    require(plugin.work >= 0 && plugin.work <= plugin.run);
    require(plugin.worker < timeline.workers);
  }
  require(timeline.workers <= ran);
  const std::vector<ChainLink> chain = criticalChain(timeline);
  require(chain.empty() == (ran == 0) && chain.size() <= ran);
  if (ran > 0) require(timeline.plugins[chain.back().plugin].end == timeline.makespan);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<KnownPlugin> known = image();
  static const KnownNames names = [] {
    KnownNames all;
    for (const KnownPlugin& plugin : known) all.add(plugin.name);
    return all;
  }();
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const bool isCompressed = input.starts_with("\x1F\x8B");
  const std::size_t zero = isCompressed ? std::string_view::npos : input.find('\0');
  constexpr std::size_t kMost = std::size_t{1} << 16U;
  const PlainText text = plainText(std::string(input.substr(0, zero)), kMost);
  require(!isCompressed || text.text.size() <= kMost);
  BootMessages messages;
  if (zero != std::string_view::npos) {
    messages = readMessages(input.substr(zero + 1), names, WhichRun::MostMentions);
  }
  const ProfilingLog log =
      readProfilingLog(text.text, [](std::string_view name) { return names.contains(name); });
  std::string reason;
  for (std::size_t number = 0; number < log.sections.size(); ++number) {
    const ProfileSection& section = log.sections[number];
    require(chooseSection(log, number, false, reason) == &section);
    check(makeTimeline(section, known, &messages));
  }
  require(chooseSection(log, log.sections.size(), false, reason) == nullptr && !reason.empty());
  for (const bool daemons : {false, true}) {
    const ProfileSection* const chosen = chooseSection(log, std::nullopt, daemons, reason);
    require(chosen == nullptr || (chosen->kind == ProfileSection::Kind::Daemon) == daemons);
  }
  return 0;
}
