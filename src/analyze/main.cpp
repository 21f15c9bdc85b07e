// bootforge-analyze: looks into an image before it boots, and into a boot after it.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "analyze/common_options.h"
#include "analyze/verbs.h"
#include "reading/nearest.h"
#include "util/utf8.h"
#include "util/version.h"

namespace bootforge::analyze {
namespace {

/// What a usage error looks like: one line that says what is wrong, one that says where help is.
std::string usageError(const CLI::App* app, const CLI::Error& error) {
  std::string verb;
  const std::vector<CLI::App*> verbs = app->get_subcommands();
  if (!verbs.empty()) verb = ' ' + verbs.front()->get_name();
  return "bootforge-analyze: " + printable(error.what()) + "\nSee bootforge-analyze" + verb +
         " --help.\n";
}

std::vector<CLI::App*> allVerbs(CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

/// Throws UsageError, with the nearest verbs, for a first word that is none.
void checkVerb(CLI::App& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') return;
  const std::string word = argv[1];
  std::vector<std::string> verbs;
  for (const CLI::App* const verb : allVerbs(app)) verbs.push_back(verb->get_name());
  if (std::find(verbs.begin(), verbs.end(), word) != verbs.end()) return;
  std::string text = "there is no verb \"" + word + "\"";
  const char* separator = "; did you mean ";
  for (const std::string_view nearest : nearestNames(word, {verbs.begin(), verbs.end()})) {
    text += separator + std::string(nearest);
    separator = ", ";
  }
  throw UsageError(text);
}

/// "--run-once=" says that a list is empty, as it does to the orchestrator; the parser would look
/// for its value in the next word.
std::vector<std::string> withEmptyValues(const std::vector<std::string>& given) {
  std::vector<std::string> words;
  for (const std::string& word : given) {
    const bool isEmptyValue = word.starts_with("--") && word.find('=') == word.size() - 1;
    words.push_back(isEmptyValue ? word.substr(0, word.size() - 1) : word);
    if (isEmptyValue) words.emplace_back();
  }
  return words;
}

int run(int argc, char** argv) {
  CLI::App app("Looks into an image before it boots, and into a boot after it.",
               "bootforge-analyze");
  app.require_subcommand(1);
  app.failure_message(usageError);
  int status = kGood;
  addVerify(app, status);
  addPlan(app, status);
  addWhy(app, status);
  addDot(app, status);
  addBlame(app, status);
  addCriticalChain(app, status);
  addStuck(app, status);
  addPlot(app, status);
  addReport(app, status);
  addSimulate(app, status);
  addDiff(app, status);
  addGate(app, status);
  addExport(app, status);
  addFleet(app, status);
  addNames(app, status);
  const std::string line = std::string("bootforge-analyze ") + version();
  app.set_version_flag("--version", line);
  for (CLI::App* const verb : allVerbs(app)) verb->set_version_flag("--version", line);
  try {
    checkVerb(app, argc, argv);
    std::vector<std::string> words = withEmptyValues(markSides(argc, argv));
    std::reverse(words.begin(), words.end());  // as the parser wants them
    app.parse(std::move(words));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kGood : kUnusable;
  } catch (const std::exception& error) {
    remark(error.what());
    return kUnusable;
  }
  return status;
}

}  // namespace
}  // namespace bootforge::analyze

int main(int argc, char** argv) { return bootforge::analyze::run(argc, argv); }
