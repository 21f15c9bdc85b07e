#include <memory>

#include "analyze/common_options.h"
#include "analyze/verbs.h"
#include "analyze/verify/checks.h"
#include "analyze/verify/render.h"

namespace bootforge::analyze {
namespace {

struct VerifyOptions : CommonOptions {
  std::string failOn = "error";
  uid_t owner = 0;
  bool listRules = false;
};

std::string render(const Findings& findings, const VerifyOptions& options) {
  if (options.isJson()) return renderJson(findings);
  if (options.format == "sarif") return renderSarif(findings);
  if (options.format == "github") return renderGithub(findings);
  return renderText(findings, isColourful(options), terminalColumns(options));
}

std::string listOfRules() {
  std::string text;
  for (const Rule& rule : allRules()) {
    text += std::string(rule.name) + ' ' + std::string(nameOf(rule.severity)) + '\n';
  }
  return text;
}

int runVerify(const VerifyOptions& options) {
  if (options.listRules) {
    writeOutput(options, listOfRules());
    return kGood;
  }
  const Image& image = openImage(options);
  const Findings findings = verify(image, options.owner);
  writeOutput(options, render(findings, options));
  const std::array<std::size_t, 3> counts = countOf(findings);
  const bool isBad = options.failOn != "never" &&
                     (counts[2] > 0 || (options.failOn == "warning" && counts[1] > 0));
  return isBad ? kBad : kGood;
}

}  // namespace

void addVerify(CLI::App& app, int& status) {
  CLI::App* const verb = app.add_subcommand("verify", "finds every defect of an image");
  const auto options = std::make_shared<VerifyOptions>();
  addImageOptions(*verb, *options);
  addBootOptions(*verb, *options);
  addOutputOptions(*verb, *options, {"text", "json", "sarif", "github"});
  verb->add_option("--fail-on", options->failOn, "what makes the exit status 1 (default: error)")
      ->option_text("error|warning|never")
      ->check(CLI::IsMember({"error", "warning", "never"}));
  verb->add_option("--owner", options->owner, "a user who may own files beside root")
      ->transform(isWholeNumber())
      ->option_text("UID");
  verb->add_flag("--list-rules", options->listRules, "only list the rules, with their severity");
  verb->callback([options, &status] { status = runVerify(*options); });
}

}  // namespace bootforge::analyze
