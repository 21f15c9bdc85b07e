#include "analyze/report/report_data.h"

#include <boost/json/array.hpp>
#include <string>
#include <utility>

#include "analyze/output/json_output.h"
#include "analyze/recorded/blame.h"
#include "analyze/recorded/boot_summary.h"
#include "analyze/recorded/chain_view.h"
#include "analyze/recorded/critical_chain.h"
#include "analyze/recorded/rows.h"
#include "analyze/recorded/savings.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

// About two seconds' work. Boots of up to 700 plugins stay below it.
constexpr std::size_t kMostSimulatedNodes = 1'500'000;

const char* textOf(KnownPlugin::Kind kind) {
  switch (kind) {
    case KnownPlugin::Kind::Native:
      return "native";
    case KnownPlugin::Kind::Debug:
      return "debug";
    case KnownPlugin::Kind::Script:
      return "script";
    case KnownPlugin::Kind::Json:
      break;
  }
  return "json";
}

class DataMaker {
 public:
  DataMaker(const Timeline& timeline, const std::vector<KnownPlugin>& known,
            const BootMessages* messages)
      : timeline_(timeline),
        known_(known),
        messages_(messages),
        savings_(findSavings(timeline, known, kMostSimulatedNodes)),
        numbers_(timeline.plugins.size()) {
    for (const TimedPlugin* const plugin : inOrder(timeline, BlameOrder::Start)) {
      const auto index = static_cast<std::size_t>(plugin - timeline.plugins.data());
      numbers_[index] = order_.size();
      order_.push_back(index);
    }
  }

  json::object make() const {
    json::array plugins;
    for (const std::size_t index : order_) plugins.emplace_back(pluginAt(index));
    json::array gates;
    for (const Gate& gate : timeline_.dependencies.gates()) gates.emplace_back(jsonText(gate.name));
    json::array chain;
    for (const ChainLink& link : criticalChain(timeline_)) chain.emplace_back(linkRow(link));
    const std::string summary = bootSummary(timeline_, {});
    return {{"boot", rowOf(timeline_)},
            {"plugins", std::move(plugins)},
            {"gates", std::move(gates)},
            {"chain", std::move(chain)},
            {"absent", absent()},
            {"model", json::object{{"makespan", savings_.makespan},
                                   {"error", savings_.modelError ? json::value(*savings_.modelError)
                                                                 : json::value()}}},
            {"summary", jsonText(summary.substr(0, summary.find('\n')))},
            {"is_daemon_run", timeline_.kind == ProfileSection::Kind::Daemon},
            {"has_messages", messages_ != nullptr},
            {"notes", notes()}};
  }

 private:
  json::object pluginAt(std::size_t index) const {
    const TimedPlugin& plugin = timeline_.plugins[index];
    json::object row = rowOf(plugin);
    row["kind"] = plugin.known ? json::value(textOf(known_[*plugin.known].kind)) : json::value();
    row["executor"] = plugin.usesExecutor;
    addGates(index, row);
    row["saves"] = savingOf(index);
    row["messages"] = messagesOf(plugin);
    return row;
  }

  void addGates(std::size_t index, json::object& row) const {
    const std::optional<std::size_t> known = timeline_.plugins[index].known;
    const bool isScript = known && known_[*known].kind == KnownPlugin::Kind::Script;
    std::size_t levels = 0;
    json::array required;
    timeline_.dependencies.forEachRequired(index, [&](std::size_t gate) {
      if (isScript) {
        ++levels;  // a script requires nothing else
      } else {
        required.emplace_back(gate);
      }
    });
    row["requires"] = std::move(required);
    row["levels"] = levels;
    json::array provided;
    for (const std::size_t gate : timeline_.dependencies.provided(index)) {
      provided.emplace_back(gate);
    }
    row["provides"] = std::move(provided);
  }

  json::value savingOf(std::size_t index) const {
    const std::optional<Saving>& saving = savings_.plugins[index];
    if (!saving) return nullptr;
    return json::object{{"half", saving->half},
                        {"none", saving->none},
                        {"native", saving->native ? json::value(*saving->native) : json::value()}};
  }

  json::array messagesOf(const TimedPlugin& plugin) const {
    json::array list;
    if (messages_ == nullptr) return list;
    const auto told = messages_->plugins.find(plugin.name);
    if (told == messages_->plugins.end()) return list;
    for (const ToldMessage& message : told->second.messages) {
      list.emplace_back(json::array{jsonText(message.time), jsonText(message.text)});
    }
    return list;
  }

  json::object linkRow(const ChainLink& link) const {
    json::object row = rowOf(timeline_, link);
    row["plugin"] = numbers_[link.plugin];
    if (json::object* const after = row["after"].if_object()) {
      (*after)["plugin"] = numbers_[link.waitedFor];
    }
    return row;
  }

  json::array absent() const {
    std::vector<bool> isThere(known_.size());
    for (const TimedPlugin& plugin : timeline_.plugins) {
      if (plugin.known) isThere[*plugin.known] = true;
    }
    json::array list;
    for (std::size_t index = 0; index < known_.size(); ++index) {
      if (isThere[index]) continue;
      const std::string reason = known_[index].leftOut.value_or("the log does not name it");
      list.emplace_back(
          json::object{{"name", jsonText(known_[index].name)}, {"reason", jsonText(reason)}});
    }
    return list;
  }

  json::array notes() const {
    json::array list = jsonTexts(timeline_.notes);
    for (const std::string& text : timeline_.contradictions) list.emplace_back(jsonText(text));
    return list;
  }

  const Timeline& timeline_;
  const std::vector<KnownPlugin>& known_;
  const BootMessages* const messages_;
  const Savings savings_;
  std::vector<std::size_t> order_;    // the plugins by start
  std::vector<std::size_t> numbers_;  // where each of them stands there
};

}  // namespace

json::object reportData(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                        const BootMessages* messages) {
  return DataMaker(timeline, known, messages).make();
}

}  // namespace bootforge::analyze
