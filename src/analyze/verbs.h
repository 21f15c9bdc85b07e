// The verbs of the command line.
#pragma once

#include <CLI/CLI.hpp>

namespace bootforge::analyze {

/// Each adds a verb whose callback does the work and sets the exit status. They throw UsageError,
/// or another std::exception, for what cannot be used.
void addVerify(CLI::App& app, int& status);
void addPlan(CLI::App& app, int& status);
void addWhy(CLI::App& app, int& status);
void addDot(CLI::App& app, int& status);

}  // namespace bootforge::analyze
