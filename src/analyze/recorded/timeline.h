// A recorded boot: what ran when, on which worker, and what it waited for.
//
// All durations are whole microseconds, and moments are counted from the earliest start, unless a
// comment says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "analyze/recorded/dependencies.h"
#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/messages_reader.h"
#include "analyze/recorded/profiling_log_reader.h"

namespace bootforge::analyze {

/// One plugin (or init script) of a recorded boot.
struct TimedPlugin {
  enum class Result { Activated, Failed, Skipped, Never, Unknown };

  std::string name;
  std::optional<std::size_t> known;  // its description: an index into what the timeline was made of
  Result result = Result::Unknown;
  std::string reason;  // of a failure

  // Known for what ran; a plugin that the operator skipped has a start only.
  bool ran = false;
  std::int64_t start = 0;
  std::int64_t end = 0;  // never before the start
  std::int64_t run = 0;
  std::int64_t waitMilestones = 0;
  std::int64_t waitWorker = 0;
  std::int64_t waitExecutor = 0;
  std::int64_t work = 0;
  long double exactWork = 0;  // `work` before it was rounded
  bool usesExecutor = false;  // a JSON plugin with commands
  std::size_t worker = 0;
  std::int64_t slack = 0;
};

struct Timeline {
  ProfileSection::Kind kind = ProfileSection::Kind::Boot;
  Moment start = 0;  // the earliest start, in microseconds since 1970; 0 when nothing ran
  std::int64_t makespan = 0;
  std::size_t workers = 0;
  std::optional<std::int64_t> kernelMicroseconds;
  std::vector<TimedPlugin> plugins;  // in the order of the log
  Dependencies dependencies;         // between them
  // What people should know: ends before their starts and the like.
  std::vector<std::string> notes;
  // Starts before the end of something that was waited for: the log and the descriptions do not
  // belong together.
  std::vector<std::string> contradictions;
};

/// Works out a timeline from a section of a profiling log, the plugins that an image describes and,
/// where there is one, a capture of messages. Descriptions and lines of one name are paired in
/// their orders.
Timeline makeTimeline(const ProfileSection& section, const std::vector<KnownPlugin>& known,
                      const BootMessages* messages);

/// Whether a plugin that ran is a better answer than another to "which one ended last": of two that
/// ended together it is the one whose name sorts first.
bool endedLater(const TimedPlugin& one, const TimedPlugin& other);

/// The provider of a gate that ended last, those marked in `except` not counted; none when none
/// ran.
std::optional<std::size_t> lastProvider(const Timeline& timeline, const Gate& gate,
                                        const std::vector<bool>& except = {});

/// "activated", "failed", "skipped", "never" or "unknown".
const char* textOf(TimedPlugin::Result result);

}  // namespace bootforge::analyze
