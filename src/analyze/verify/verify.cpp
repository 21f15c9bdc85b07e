#include "analyze/verify/checks.h"

namespace bootforge::analyze {

Findings verify(const Image& image, uid_t owner) {
  Reporter reporter;
  CommandCatalogue commands;
  if (!image.options().daemons) {
    commands = readCommands(image.root());
    checkFiles(image, reporter);
    checkSelection(image, reporter);
    checkGraph(image, reporter);
    checkCommandFiles(image, commands, reporter);
    checkCommandLines(image, commands, reporter);
    checkNative(image, reporter);
    checkDebugConfiguration(image, reporter);
  }
  checkInitScripts(image, reporter);
  checkOwners(image, commands, owner, reporter);
  Findings findings = reporter.take();
  sortFindings(findings);
  return findings;
}

}  // namespace bootforge::analyze
