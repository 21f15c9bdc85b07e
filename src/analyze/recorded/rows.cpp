#include "analyze/recorded/rows.h"

#include <boost/json/serialize.hpp>

#include "analyze/output/json_output.h"

namespace bootforge::analyze {

namespace json = boost::json;

json::object rowOf(const TimedPlugin& plugin) {
  const auto ifRan = [&](auto value) { return plugin.ran ? json::value(value) : json::value(); };
  const bool started = plugin.ran || plugin.result == TimedPlugin::Result::Skipped;
  return {
      {"name", jsonText(plugin.name)},
      {"start", started ? json::value(plugin.start) : json::value()},
      {"end", ifRan(plugin.end)},
      {"run", ifRan(plugin.run)},
      {"wait_milestones", ifRan(plugin.waitMilestones)},
      {"wait_worker", ifRan(plugin.waitWorker)},
      {"wait_executor", ifRan(plugin.waitExecutor)},
      {"work", ifRan(plugin.work)},
      {"worker", ifRan(plugin.worker)},
      {"slack", ifRan(plugin.slack)},
      {"result", textOf(plugin.result)},
      {"reason", plugin.result == TimedPlugin::Result::Failed ? json::value(jsonText(plugin.reason))
                                                              : json::value()}};
}

json::object rowOf(const Timeline& timeline) {
  return {{"start", timeline.workers > 0 ? json::value(timeline.start) : json::value()},
          {"makespan", timeline.makespan},
          {"workers", timeline.workers},
          {"kernel_us", timeline.kernelMicroseconds ? json::value(*timeline.kernelMicroseconds)
                                                    : json::value()}};
}

std::string lineOf(const json::object& object) { return json::serialize(object) + '\n'; }

}  // namespace bootforge::analyze
