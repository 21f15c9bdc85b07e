// The verbs of the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace bootforge::analyze {

/// Each adds a verb whose callback does the work and sets the exit status. They throw UsageError,
/// or another std::exception, for what cannot be used.
void addVerify(CLI::App& app, int& status);
void addPlan(CLI::App& app, int& status);
void addWhy(CLI::App& app, int& status);
void addDot(CLI::App& app, int& status);
void addBlame(CLI::App& app, int& status);
void addCriticalChain(CLI::App& app, int& status);
void addStuck(CLI::App& app, int& status);
void addPlot(CLI::App& app, int& status);
void addReport(CLI::App& app, int& status);
void addSimulate(CLI::App& app, int& status);
void addDiff(CLI::App& app, int& status);
void addGate(CLI::App& app, int& status);
void addExport(CLI::App& app, int& status);
void addFleet(CLI::App& app, int& status);
void addNames(CLI::App& app, int& status);

/// The words of the command line behind the program's name, with a "--" between the two sides of a
/// comparison kept from the parser.
std::vector<std::string> markSides(int argc, char** argv);

}  // namespace bootforge::analyze
