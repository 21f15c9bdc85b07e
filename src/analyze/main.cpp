// bootforge-analyze: looks into an image before it boots, and into a boot after it.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>

#include "analyze/common_options.h"
#include "analyze/verbs.h"

namespace bootforge::analyze {
namespace {

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
    std::vector<std::string> words = markSides(argc, argv);
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
