// How a plugin is run: timed, logged, and with every failure contained.

#include <sys/time.h>
#include <unistd.h>

#include <optional>

#include "graph/executor.h"
#include "graph/interactive_prompt.h"
#include "main/run_options.h"
#include "platform/log.h"
// Looks up, because it is Plugin::run: the part of a plugin that belongs to running the graph.
#include "plugins/exceptions.h"
#include "plugins/plugin.h"
#include "util/kernel_log.h"

namespace bootforge {
namespace {

/// Whether a host profile is there: looked for once, by the first plugin that could apply it, and
/// then the same for the whole run.
bool hostProfilePresent() {
  ScopedLock lock(graphLock);
  static std::optional<bool> present;
  if (!present) {
    present = ::access("/etc/nimbus/hostprofile.xml", F_OK) == 0 ||
              ::access("/etc/nimbus/hostprofile.xml.gz", F_OK) == 0;
  }
  return *present;
}

}  // namespace

void Plugin::run(Executor& /*executor*/) {
  gettimeofday(&activationStart_, nullptr);
  const RunOptions& options = RunOptions::instance();
  if (options.interactive && promptFor(name()) == PromptAnswer::Skip) return;
  if (options.trace) Log_Level(5, "starting execution of plugin: %s\n", name().c_str());
  kernelLog("Activating Bootforge plugin %s.", name().c_str());

  std::optional<std::string> failure;
  try {
    // Only an invocation hands its method down: for daemons it is the direction of the run.
    if (!options.invoke || options.method.empty()) {
      activate();
    } else if (!invokeMethod(options.method)) {
      failure = "Method invocation failed";
    }
  } catch (const MethodFailedException& error) {
    failure = error.what();
    Log_Level(2, "Method invocation failed: %s\n", error.what());
  } catch (const std::exception& error) {
    failure = error.what();
    Log_Level(2, "unhandled exception whilst processing %s: %s\n", name().c_str(), error.what());
  } catch (...) {
    failure = "unknown exception";
    Log_Level(2, "ignoring unknown exception whilst processing %s ...\n", name().c_str());
  }

  gettimeofday(&activationEnd_, nullptr);
  if (options.trace) {
    Log_Level(5, "completed execution of plugin: %s (took %lld us)\n", name().c_str(),
              static_cast<long long>(activationDuration()));
  }
  if (failure) {
    kernelLog("Bootforge plugin %s activation failed: %s", name().c_str(), failure->c_str());
  } else {
    kernelLog("Bootforge plugin %s activated.", name().c_str());
  }
}

void Plugin::activate() {
  if (supportsApplyHostProfile() && hostProfilePresent()) {
    Log_Level(5, "executing host profile plugin: %s\n", name().c_str());
    applyHostProfile();
  } else {
    Log_Level(5, "executing start plugin: %s\n", name().c_str());
    start();
  }
}

bool Plugin::invokeMethod(const std::string& method) {
  try {
    if (method == "start") {
      Log_Level(5, "executing start plugin: %s\n", name().c_str());
      start();
    } else if (method == "apply_host_profile") {
      Log_Level(5, "executing host profile plugin: %s\n", name().c_str());
      applyHostProfile();
    }
    return true;
  } catch (const MethodFailedException& error) {
    Log_Level(2, "Method invocation failed: %s\n", error.what());
  } catch (const std::exception& error) {
    Log_Level(2, "unable to invoke method '%s' on plugin '%s': %s\n", method.c_str(),
              name().c_str(), error.what());
  } catch (...) {
    Log_Level(2, "unknown exception whilst attempting to execute method '%s' on plugin '%s'\n",
              method.c_str(), name().c_str());
  }
  return false;
}

}  // namespace bootforge
