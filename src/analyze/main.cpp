// bootforge-analyze: looks into an image before it boots, and into a boot after it.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "analyze/common_options.h"
#include "analyze/verbs.h"

namespace bootforge::analyze {
namespace {

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
  app.set_version_flag("--version", std::string("bootforge-analyze ") + BOOTFORGE_VERSION);
  app.require_subcommand(1);
  int status = kGood;
  addVerify(app, status);
  addPlan(app, status);
  addWhy(app, status);
  addDot(app, status);
  addBlame(app, status);
  addCriticalChain(app, status);
  addStuck(app, status);
  addPlot(app, status);
  addSimulate(app, status);
  addDiff(app, status);
  addGate(app, status);
  addExport(app, status);
  addFleet(app, status);
  try {
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
