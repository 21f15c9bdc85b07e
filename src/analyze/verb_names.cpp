#include <boost/json/object.hpp>
#include <memory>
#include <set>

#include "analyze/common_options.h"
#include "analyze/image/wait_graph.h"
#include "analyze/output/json_output.h"
#include "analyze/verbs.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

struct NamesOptions : CommonOptions {
  std::string kind;
};

/// Sorted as bytes, each once.
using Names = std::set<std::string>;

template <typename Add>
void forEachPlugin(const Catalogue& catalogue, Add add) {
  for (const PluginList* const list : {&catalogue.plugins, &catalogue.leftOut}) {
    for (const auto& plugin : *list) add(*plugin);
  }
}

/// What discovery would take for a plugin, whether it can be read or not.
Names filesOf(const Image& image) {
  Names names;
  for (const PluginFile& file : image.files()) {
    using Kind = Entry::Kind;
    const Kind kind = file.entry.kind;
    if (kind != Kind::UnknownType && kind != Kind::NoType) names.insert(file.name);
  }
  return names;
}

Names barriersOf(const Image& image) {
  const WaitGraph graph(image);
  Names names;
  for (WaitGraph::Index i = 0; i < graph.size(); ++i) {
    if (graph.isBarrier(i)) names.insert(graph.name(i));
  }
  return names;
}

Names namesOf(const Image& image, const std::string& kind) {
  if (kind == "files") return filesOf(image);
  if (kind == "milestones") return barriersOf(image);
  Names names;
  forEachPlugin(image.catalogue(), [&](const Plugin& plugin) {
    if (kind == "plugins") {
      names.insert(plugin.name());
    } else if (kind == "flags") {
      names.insert(plugin.requiredFlags().begin(), plugin.requiredFlags().end());
      names.insert(plugin.disablingFlags().begin(), plugin.disablingFlags().end());
    } else if (plugin.runOnce()) {
      names.insert(cleanedRunOnceKey(runOnceKey(plugin)));
    }
  });
  return names;
}

int runNames(const NamesOptions& options) {
  const Names names = namesOf(openImage(options), options.kind);
  if (options.isJson()) {
    const json::array list = jsonTexts({names.begin(), names.end()});
    writeOutput(options, prettyJson(json::object{{"names", list}}));
    return kGood;
  }
  std::string text;
  for (const std::string& name : names) text += printable(name) + '\n';
  writeOutput(options, text);
  return kGood;
}

}  // namespace

void addNames(CLI::App& app, int& status) {
  CLI::App* const verb = app.add_subcommand("names", "the names of an image, for other programs");
  const auto options = std::make_shared<NamesOptions>();
  verb->add_option("KIND", options->kind, "which names")
      ->option_text("plugins|files|milestones|flags|keys")
      ->check(CLI::IsMember({"plugins", "files", "milestones", "flags", "keys"}))
      ->required();
  addImageOptions(*verb, *options);
  addOutputOptions(*verb, *options, {"text", "json"});
  verb->callback([options, &status] { status = runNames(*options); });
}

}  // namespace bootforge::analyze
