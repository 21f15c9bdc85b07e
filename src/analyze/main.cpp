// bootforge-analyze: looks into an image before it boots, and into a boot after it.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "analyze/common_options.h"
#include "analyze/verbs.h"

namespace bootforge::analyze {
namespace {

/// The arguments, last one first, as the parser wants them. "--run-once=" says that a list is
/// empty, as it does to the orchestrator; the parser would look for its value in the next word.
std::vector<std::string> wordsOf(int argc, char** argv) {
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) {
    std::string word = argv[i];
    const bool isEmptyValue = word.starts_with("--") && word.find('=') == word.size() - 1;
    if (isEmptyValue) word.pop_back();
    words.push_back(std::move(word));
    if (isEmptyValue) words.emplace_back();
  }
  std::reverse(words.begin(), words.end());
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
  try {
    app.parse(wordsOf(argc, argv));
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
