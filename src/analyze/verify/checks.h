// The checks behind verify: each looks at one part of an image for the defects of some rules.
#pragma once

#include <sys/types.h>

#include <vector>

#include "analyze/image/command_catalogue.h"
#include "analyze/image/image.h"
#include "analyze/verify/reporter.h"

namespace bootforge::analyze {

/// The plugin folder, its entries and their descriptions.
void checkFiles(const Image& image, Reporter& reporter);

/// Flags, lists and run-once keys.
void checkSelection(const Image& image, Reporter& reporter);

/// Milestones that nobody provides, and cycles.
void checkGraph(const Image& image, Reporter& reporter);

/// Command files, and the command lines of the plugins that take part.
void checkCommandFiles(const Image& image, const CommandCatalogue& commands, Reporter& reporter);
void checkCommandLines(const Image& image, const CommandCatalogue& commands, Reporter& reporter);

/// Shared objects.
void checkNative(const Image& image, Reporter& reporter);

void checkDebugConfiguration(const Image& image, Reporter& reporter);

void checkInitScripts(const Image& image, Reporter& reporter);

/// Who may write what root will run. `owner` is accepted beside root.
void checkOwners(const Image& image, const CommandCatalogue& commands, uid_t owner,
                 Reporter& reporter);

/// All of them, sorted.
Findings verify(const Image& image, uid_t owner);

}  // namespace bootforge::analyze
