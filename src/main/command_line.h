// The command line.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"

namespace bootforge {

/// What main itself keeps of the command line; the rest goes into the run options.
struct CommandLine {
  bool help = false;
  bool init = false;
  bool daemon = false;
  bool stop = false;  // the daemons' direction
  bool dump = false;
  std::string dumpPath;  // empty for standard output
  std::set<std::string> bootFlags;
  std::set<std::string> runOnce;
  std::vector<std::string> plugins;  // named ones; none means the plugin directory
  std::string pluginDirectory = kDefaultPluginDirectory;
};

/// Reads the command line, filling the run options on the way. Words that are no options are
/// ignored. Nothing for an unknown option or a missing argument: the usage line has then been
/// written to standard error. Throws boost::bad_lexical_cast for a number that cannot be read.
std::optional<CommandLine> parseCommandLine(int argc, char** argv);

/// False, with the reason in the log and where it helps the usage text on standard output, when the
/// options do not go together. Finds out the daemons' direction.
bool validate(CommandLine& commandLine);

void printUsage();

}  // namespace bootforge
