#include "main/command_line.h"

#include <getopt.h>

#include <boost/lexical_cast.hpp>
#include <cstdint>
#include <cstdio>

#include "main/run_options.h"
#include "platform/log.h"
#include "reading/name_list.h"

namespace bootforge {
namespace {

enum LongOption : int {
  kHelp = 'h',
  kInit = 128,
  kPluginFlags,
  kTrace,
  kInvoke,
  kMethod,
  kPlugin,
  kVerbose,
  kParallel,
  kRandomize,
  kRunOnce,
  kInteractive,
  kDisablePlugins,
  kPluginDirectory,
  kDumpDependencyTree,
  kInteractiveModeRequires,
  kDaemon,
  kDaemonWaitTimeout,
};

constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, kHelp},
    {"init", no_argument, nullptr, kInit},
    {"plugin-flags", required_argument, nullptr, kPluginFlags},
    {"trace", no_argument, nullptr, kTrace},
    {"invoke", no_argument, nullptr, kInvoke},
    {"method", required_argument, nullptr, kMethod},
    {"plugin", required_argument, nullptr, kPlugin},
    {"verbose", no_argument, nullptr, kVerbose},
    {"parallel", no_argument, nullptr, kParallel},
    {"randomize", optional_argument, nullptr, kRandomize},
    {"run-once", required_argument, nullptr, kRunOnce},
    {"interactive", no_argument, nullptr, kInteractive},
    {"disable-plugins", required_argument, nullptr, kDisablePlugins},
    {"plugin-directory", required_argument, nullptr, kPluginDirectory},
    {"dump-dependency-tree", optional_argument, nullptr, kDumpDependencyTree},
    {"interactive-mode-requires", required_argument, nullptr, kInteractiveModeRequires},
    {"daemon", optional_argument, nullptr, kDaemon},
    {"daemon-wait-timeout", required_argument, nullptr, kDaemonWaitTimeout},
    {nullptr, 0, nullptr, 0},
};

constexpr const char* kUsage =
    " -h,--help                  display this help message\n"
    "    --init                  run in init mode (this will cause hvsyslog to be\n"
    "                            launched, and the start method to be invoked on the\n"
    "                            plugins)\n"
    "    --invoke                run a particular method from the plugin's function\n"
    "                            pointer table (requires --method)\n"
    "    --method=<method>       specifies the method identifier\n"
    "    --plugin=<plugin>[,<plugin>]\n"
    "                            comma separated list of plugins to load (note that \n"
    "                            this will prevent the loading of all plugins, and \n"
    "                            only the specified plugins will be loaded), which\n"
    "                            are specified by the filename (basename of the\n"
    "                            plugin path)\n"
    "    --trace                 trace execution of the plugins for debugging \n"
    "                            purposes\n"
    "    --verbose               logs plugin execution to syslog to aid in debugging\n"
    "    --randomize[=seed]      evaluate the execution order randomizing the\n"
    "                            order of independent jobs. Only useful for testing.\n"
    "                            You can specify an optional seed for reproducibility\n"
    "    --parallel              evaluate the execution order accounting for\n"
    "                            parallelism between jobs which are independent\n"
    "    --plugin-flags=<flag>[,<flag>]\n"
    "                            specify flags for conditional execution of plugins.\n"
    "                            If there are multiple occurences of this option, the\n"
    "                            last one is the only one that counts. See plugin\n"
    "                            documentation for which plugins support flags.\n"
    "    --interactive           prompts before performing the action, allowing\n"
    "                            plugins to be skipped, executed, or to fall to a\n"
    "                            troubleshooting shell\n"
    "    --disable-plugins=<plugin>[,<plugin>]\n"
    "                            a comma separated list of plugins to be disabled\n"
    "                            during execution, which are specified by the\n"
    "                            filename (basename of the plugin path)\n"
    "    --dump-dependency-tree[=<path>]\n"
    "                            dump plugin dependency tree information to the file\n"
    "                            specified by path.  If path is not specified, the\n"
    "                            information will be dumped to the console\n"
    "    --interactive-mode-requires=<plugin>[,<plugin>]\n"
    "                            interactive mode requires the specified plugins to \n"
    "                            be loaded before it can be activated\n"
    "    --daemon=[wait|nowait]\n"
    "                            run daemon operations (requires --method). The \n"
    "                            optional wait mode specifies whether bootforge \n"
    "                            should wait for daemon start/stop to complete. \n"
    "                            Defaults to 'nowait' if unspecified.\n"
    "    --daemon-wait-timeout=timeoutInSecs\n"
    "                            specify how long bootforge should wait for daemons \n"
    "                            to start/stop, before moving on to the next one.\n"
    "                            The default is 40 secs.\n";

void append(std::list<std::string>& list, const std::string& text) {
  for (std::string& item : itemsOf(text)) list.push_back(std::move(item));
}

std::uint32_t parseSeconds(const std::string& text) {
  // The cast would take "-1" for the greatest number.
  if (text.starts_with('-')) {
    throw boost::bad_lexical_cast(typeid(std::string), typeid(std::uint32_t));
  }
  return boost::lexical_cast<std::uint32_t>(text);
}

}  // namespace

std::optional<CommandLine> parseCommandLine(int argc, char** argv) {
  CommandLine commandLine;
  RunOptions& options = RunOptions::instance();
  opterr = 0;  // a usage error is one line, ours
  for (int code; (code = getopt_long(argc, argv, "h", kLongOptions, nullptr)) != -1;) {
    const std::string argument = optarg != nullptr ? optarg : "";
    switch (code) {
      case kHelp:
        commandLine.help = true;
        return commandLine;
      case kInit:
        commandLine.init = true;
        break;
      case kPluginFlags: {
        const std::vector<std::string> flags = itemsOf(argument);
        commandLine.bootFlags = {flags.begin(), flags.end()};
        break;
      }
      case kTrace:
        options.trace = true;
        break;
      case kInvoke:
        options.invoke = true;
        break;
      case kMethod:
        options.method = argument;
        break;
      case kPlugin:
        for (std::string& name : itemsOf(argument)) commandLine.plugins.push_back(std::move(name));
        break;
      case kVerbose:
        options.verbose = true;
        break;
      case kParallel:
        options.parallel = true;
        options.interactive = false;
        break;
      case kRandomize:
        options.randomize = true;
        if (optarg != nullptr) options.randomSeed = boost::lexical_cast<std::int32_t>(argument);
        break;
      case kRunOnce:
        for (std::string& key : itemsOf(argument)) commandLine.runOnce.insert(std::move(key));
        break;
      case kInteractive:
        options.interactive = true;
        options.parallel = false;
        break;
      case kDisablePlugins:
        append(options.disabledPlugins, argument);
        break;
      case kPluginDirectory:
        commandLine.pluginDirectory = argument;
        break;
      case kDumpDependencyTree:
        commandLine.dump = true;
        commandLine.dumpPath = argument;
        break;
      case kInteractiveModeRequires:
        append(options.interactiveModeRequires, argument);
        break;
      case kDaemon:
        commandLine.daemon = true;
        options.daemonWait = argument == "wait";
        break;
      case kDaemonWaitTimeout:
        options.daemonWaitTimeout = parseSeconds(argument);
        break;
      default:
        std::fprintf(stderr, "usage: %s --help for usage information\n", argv[0]);
        return std::nullopt;
    }
  }
  return commandLine;
}

bool validate(CommandLine& commandLine) {
  const RunOptions& options = RunOptions::instance();
  if (commandLine.daemon) {
    commandLine.stop = options.method == "stop";
    if (options.interactive || options.invoke || commandLine.init || !commandLine.plugins.empty() ||
        (options.method != "start" && !commandLine.stop)) {
      Log_Level(2, "Invalid combination of options passed. Exiting\n");
      return false;
    }
  } else if (options.invoke && (options.method.empty() || commandLine.plugins.empty())) {
    Log_Level(2, "invoke requires a method and plugin specified\n");
    printUsage();
    return false;
  }
  return true;
}

void printUsage() { std::fputs(kUsage, stdout); }

}  // namespace bootforge
