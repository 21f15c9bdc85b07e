// The operator's prompt of an interactive boot.
#pragma once

#include <string>

namespace bootforge {

enum class PromptAnswer { Activate, Skip };

/// Asks the operator on the standard streams what to do about a plugin: continue without further
/// prompts, execute it, look around in a troubleshooting shell first, or skip it. While plugins
/// that the prompt is to wait for have not all run, it takes note of this one and asks nothing.
/// Waits for an answer without limit, at the end of input too. On the only worker, without the
/// graph lock.
PromptAnswer promptFor(const std::string& pluginName);

}  // namespace bootforge
