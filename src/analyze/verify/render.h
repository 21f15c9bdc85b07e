// Findings as text for people and for other programs.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "analyze/verify/finding.h"

namespace bootforge::analyze {

/// For people: each finding with the line it is about, and the sum last. Lines keep within
/// `columns`, all but the one that says what was found.
std::string renderText(const Findings& findings, bool isColourful,
                       std::optional<std::size_t> columns = {});

std::string renderJson(const Findings& findings);

/// The Static Analysis Results Interchange Format, version 2.1.0.
std::string renderSarif(const Findings& findings);

/// Workflow commands that a public CI service shows beside the lines of a change.
std::string renderGithub(const Findings& findings);

}  // namespace bootforge::analyze
