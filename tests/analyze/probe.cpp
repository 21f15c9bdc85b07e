// Asks the library about many recorded boots in one process: a JSON object a line on standard
// input, an answer a line on standard output. What the lines hold is told by reference_test.py.

#include <boost/json.hpp>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "analyze/recorded/blame.h"
#include "analyze/recorded/chain_view.h"
#include "analyze/recorded/messages_reader.h"
#include "analyze/recorded/profiling_log_reader.h"
#include "analyze/recorded/simulation_view.h"
#include "analyze/recorded/stuck.h"
#include "analyze/recorded/timeline.h"

namespace {

namespace json = boost::json;
using namespace bootforge::analyze;

std::vector<std::string> textsOf(const json::value& list) {
  return json::value_to<std::vector<std::string>>(list);
}

KnownPlugin::Kind kindOf(const json::value& kind) {
  if (kind == "native") return KnownPlugin::Kind::Native;
  if (kind == "debug") return KnownPlugin::Kind::Debug;
  return kind == "script" ? KnownPlugin::Kind::Script : KnownPlugin::Kind::Json;
}

std::vector<KnownPlugin> pluginsOf(const json::value& list) {
  std::vector<KnownPlugin> plugins;
  for (const json::value& entry : list.as_array()) {
    KnownPlugin& plugin = plugins.emplace_back();
    plugin.name = json::value_to<std::string>(entry.at("name"));
    plugin.kind = kindOf(entry.at("kind"));
    plugin.required = textsOf(entry.at("requires"));
    plugin.provided = textsOf(entry.at("provides"));
    plugin.level = entry.at("level").to_number<std::uint32_t>();
    plugin.hasCommands = entry.at("commands").as_bool();
    if (entry.at("left_out").as_bool()) plugin.leftOut = "left out";
  }
  return plugins;
}

json::object answerTo(const json::value& question) {
  const std::vector<KnownPlugin> plugins = pluginsOf(question.at("plugins"));
  KnownNames names;
  for (const KnownPlugin& plugin : plugins) names.add(plugin.name);
  const auto isName = [&](std::string_view name) { return names.contains(name); };
  json::object answer;
  const auto add = [&answer](const char* verb, const Answer& told) {
    answer[verb] = json::object{{"status", told.status}, {"json", json::parse(told.output)}};
  };
  std::optional<BootMessages> messages;
  if (const json::value& capture = question.at("messages"); capture.is_string()) {
    messages = readMessages(json::value_to<std::string>(capture), names, WhichRun::MostMentions);
    add("stuck", showStuck(plugins, *messages, Format::Json, {}));
  }
  const ProfilingLog log =
      readProfilingLog(json::value_to<std::string>(question.at("log")), isName);
  answer["damaged"] = !log.notes.empty();
  std::string reason;
  const ProfileSection* const section =
      chooseSection(log, std::nullopt, question.at("daemons").as_bool(), reason);
  if (section == nullptr) return answer;
  const Timeline timeline = makeTimeline(*section, plugins, messages ? &*messages : nullptr);
  answer["contradicted"] = !timeline.contradictions.empty();
  add("blame", blame(timeline, BlameOrder::Start, Format::Json, {}));
  add("chain", showCriticalChain(timeline, std::nullopt, Format::Json, {}));
  json::array chains;
  for (const std::string& name : textsOf(question.at("chains_to"))) {
    chains.push_back(json::parse(showCriticalChain(timeline, name, Format::Json, {}).output));
  }
  answer["chains"] = std::move(chains);
  std::vector<std::size_t> workers;
  for (const json::value& count : question.at("workers").as_array()) {
    workers.push_back(count.to_number<std::size_t>());
  }
  Changes changes;
  for (const auto& change : question.at("set").as_object()) {
    changes.work.emplace_back(change.key(), change.value().to_number<std::int64_t>());
  }
  changes.without = textsOf(question.at("without"));
  add("simulate", showSimulations(timeline, plugins, changes, workers, Format::Json, {}));
  return answer;
}

}  // namespace

int main() {
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << json::serialize(answerTo(json::parse(line))) << '\n';
  }
  return 0;
}
