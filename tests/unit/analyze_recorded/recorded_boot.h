// Small recorded boots, drawn in a line each.
#pragma once

#include <boost/json/parse.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/profiling_log_reader.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze::test {

inline constexpr Moment kBegin = 1'709'622'249'000'000;  // 2024-03-05 07:04:09

/// A line of the log; moments count from kBegin.
inline ProfiledPlugin ran(std::string name, std::int64_t start, std::int64_t end) {
  return {std::move(name), kBegin + start, kBegin + end};
}

inline ProfileSection boot(std::vector<ProfiledPlugin> plugins) {
  ProfileSection section;
  section.plugins = std::move(plugins);
  section.kernelMicroseconds = 5'000'000;
  return section;
}

inline KnownPlugin described(std::string name, std::vector<std::string> required = {},
                             std::vector<std::string> provided = {}) {
  KnownPlugin plugin;
  plugin.name = std::move(name);
  plugin.required = std::move(required);
  plugin.provided = std::move(provided);
  plugin.hasCommands = true;
  return plugin;
}

inline KnownPlugin native(std::string name, std::vector<std::string> required = {},
                          std::vector<std::string> provided = {}) {
  KnownPlugin plugin = described(std::move(name), std::move(required), std::move(provided));
  plugin.kind = KnownPlugin::Kind::Native;
  plugin.hasCommands = false;
  return plugin;
}

inline KnownPlugin script(std::string name, std::uint32_t level) {
  KnownPlugin plugin;
  plugin.name = std::move(name);
  plugin.kind = KnownPlugin::Kind::Script;
  plugin.level = level;
  return plugin;
}

inline boost::json::value read(const Answer& answer) { return boost::json::parse(answer.output); }

}  // namespace bootforge::analyze::test
