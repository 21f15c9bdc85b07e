#include "main/boot.h"

#include <malloc.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <csignal>
#include <ext/stdio_sync_filebuf.h>
#include <fstream>
#include <optional>

#include "catalogue/discovery.h"
#include "catalogue/init_scripts.h"
#include "catalogue/run_once_record.h"
#include "cli/hypcli_executor.h"
#include "graph/executor.h"
#include "graph/graph.h"
#include "main/closing_steps.h"
#include "main/command_line.h"
#include "main/exec_routine.h"
#include "main/logging.h"
#include "main/profiling_log.h"
#include "main/run_options.h"
#include "platform/host_kernel.h"
#include "platform/hvkctl.h"
#include "platform/log.h"
#include "plugins/debug_configuration.h"
#include "plugins/debug_plugin.h"
#include "plugins/legacy_daemon_plugin.h"
#include "util/standard_streams.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

constexpr const char* kStatelessMarker = "/stateless.tgz";
constexpr mode_t kOthersMayNotWrite = 022;

/// One run of the program. Each step is a member function, in the order in which run() takes them.
class Boot {
 public:
  Boot(CommandLine commandLine, const timeval& start, std::uint64_t kernelMicroseconds)
      : commandLine_(std::move(commandLine)) {
    profile_.start = start;
    profile_.kernelMicroseconds = kernelMicroseconds;
  }

  int run() {
    if (commandLine_.init) startSystemDaemons();
    if (commandLine_.daemon) return runBetween();
    if (!startCliExecutor()) return 1;
    try {
      return runBetween();
    } catch (...) {
      // Nobody else would ever tell it to end.
      stopCliExecutor();
      throw;
    }
  }

 private:
  /// Everything between the executor's start and its end.
  int runBetween() {
    options_.pluginDirectory =
        boost::filesystem::system_complete(commandLine_.pluginDirectory).string();
    leaveSession();
    try {
      commandLine_.daemon ? gatherDaemons() : gatherPlugins();
      profile_.plugins = &catalogue_.plugins;
      runGraph();
    } catch (const std::exception& error) {
      giveUpRun(error.what());
    } catch (...) {
      giveUpRun("unknown exception");
    }
    gettimeofday(&profile_.end, nullptr);
    writeProfile();
    if (commandLine_.init) reloadSyslogDaemon();
    if (!commandLine_.daemon && !endBoot()) status_ = 1;
    return status_;
  }

  void startSystemDaemons() {
    // What they return is theirs: a boot without a log daemon is still a boot.
    runAndWait("/usr/lib/nimbus/hvsyslog/bin/hvsyslogd", {});
    runAndWait("/etc/init.d/evtd", {"start"});
  }

  bool startCliExecutor() {
    Log_Level(5, "Launching Executor\n");
    try {
      HypcliExecutor::instance().start();
      return true;
    } catch (const std::exception& error) {
      Log_Level(3, "Failed to start executor %s\n", error.what());
    } catch (...) {
      Log_Level(3, "Failed to start executor\n");
    }
    return false;
  }

  void leaveSession() {
    if (::chdir("/") != 0) {
      Log_Level(5, "unable to change filesystem root: %s.\n", systemErrorText(errno).c_str());
    }
    if (::setsid() == -1) {
      Log_Level(5, "unable to create session: %s.\n", systemErrorText(errno).c_str());
    }
  }

  void gatherPlugins() {
    if (options_.invoke) loadRunOnceRecord(selection_.runOnce);
    if (commandLine_.plugins.empty()) {
      const std::list<DebugEntry> injections = loadDebugEntries();
      for (const auto& entry : boost::filesystem::directory_iterator(options_.pluginDirectory)) {
        discover(entry.path().filename().string());
      }
      for (const DebugEntry& entry : injections) {
        catalogue_.plugins.push_back(std::make_unique<DebugPlugin>(entry, catalogue_.barriers));
      }
    } else {
      for (const std::string& name : commandLine_.plugins) discover(name);
    }
  }

  /// The init scripts, but for those of the daemons that an init run starts itself.
  void gatherDaemons() {
    for (const auto& [priority, script] : enumerateInitScripts()) {
      const std::string name = boost::filesystem::path(script).filename().string();
      if (isStartedByBoot(name)) continue;
      try {
        catalogue_.plugins.push_back(
            std::make_unique<LegacyDaemonPlugin>(name, script, priority, catalogue_.barriers));
      } catch (const std::exception& error) {
        Log_Level(3, "Failed to create init.d daemon plugin: %s because: %s\n", script.c_str(),
                  error.what());
      } catch (...) {
        Log_Level(3, "Failed to create init.d daemon plugin: %s\n", script.c_str());
      }
    }
  }

  /// What is left after the run is done all the same.
  void giveUpRun(const char* reason) {
    Log_Level(2, "unhandled exception whilst enumerating plugins.\nDetails:\n %s \n\n", reason);
    status_ = 1;
  }

  void discover(const std::string& fileName) {
    discoverPlugin(fileName, options_.pluginDirectory, selection_, catalogue_);
  }

  void runGraph() {
    std::vector<Node*> nodes;
    nodes.reserve(catalogue_.plugins.size());
    for (const auto& plugin : catalogue_.plugins) nodes.push_back(plugin.get());
    const Graph graph(std::move(nodes));
    chooseThreadCount();
    if (commandLine_.dump) {
      dumpGraph(graph);
      return;
    }
    Executor executor(static_cast<std::int32_t>(options_.threadCount), options_.randomize);
    if (commandLine_.daemon) {
      commandLine_.stop ? graph.runReverse(executor) : graph.runForward(executor);
      return;
    }
    HvkCtl::System::KernelProgressScreenImpl screen;
    screen.ProgressText("Activating Bootforge Plugins");
    screen.StatusText("");
    graph.runForward(executor);
    saveRunOnceRecord(selection_.runOnce);
  }

  void chooseThreadCount() {
    if (::access(kStatelessMarker, F_OK) == 0) {
      options_.parallel = false;
      return;
    }
    if (!options_.parallel) return;
    std::uint32_t processors = 1;
    if (const int error = HvkSyscall_ProcessorCount(&processors); error != 0) {
      Log_Level(3, "unable to obtain the processor count: %s.\n", systemErrorText(error).c_str());
    }
    // Without a worker the run would wait for ever.
    processors = std::max(processors, 1U);
    options_.threadCount =
        std::min(static_cast<std::uint32_t>(catalogue_.plugins.size()), 2 * processors);
  }

  void dumpGraph(const Graph& graph) {
    std::ofstream file;
    if (!commandLine_.dumpPath.empty()) file.open(commandLine_.dumpPath);
    // What std::cout is, but for what that costs every start: all of the standard streams.
    __gnu_cxx::stdio_sync_filebuf<char> buffer(stdout);
    std::ostream console(&buffer);
    std::ostream& out = commandLine_.dumpPath.empty() ? console : file;
    if (out) graph.writeDot(out, catalogue_.barriers);
    if (out) return;
    const int error = errno;
    const std::string target =
        commandLine_.dumpPath.empty() ? "standard output" : commandLine_.dumpPath;
    Log_Level(2, "unable to write dependency tree (%s): %s.\n", target.c_str(),
              systemErrorText(error).c_str());
    status_ = 1;
  }

  void writeProfile() {
    if (commandLine_.daemon) {
      appendDaemonProfile(profile_);
    } else if (!options_.invoke) {
      writeBootProfile(profile_);
    }
  }

  RunOptions& options_ = RunOptions::instance();
  CommandLine commandLine_;
  Profile profile_;
  Selection selection_{commandLine_.bootFlags, options_.disabledPlugins, commandLine_.runOnce};
  Catalogue catalogue_;
  int status_ = 0;
};

std::uint64_t kernelUptimeMicroseconds() {
  struct sysinfo information {};
  if (sysinfo(&information) != 0) return 0;
  return static_cast<std::uint64_t>(information.uptime) * 1'000'000;
}

int runWithOptions(int argc, char** argv, char** environment) {
  RunOptions& options = RunOptions::instance();
  options.environment = environment;
  timeval start{};
  gettimeofday(&start, nullptr);
  const std::uint64_t uptime = kernelUptimeMicroseconds();
  initialiseLogging("bootforge");

  std::optional<CommandLine> commandLine = parseCommandLine(argc, argv);
  if (!commandLine) return 1;
  if (commandLine->help) {
    printUsage();
    return 0;
  }
  if (!validate(*commandLine)) return 1;
  return Boot(std::move(*commandLine), start, uptime).run();
}

}  // namespace

int runProgram(int argc, char** argv, char** environment) {
  // A heap for each thread would cost each more than its few messages do.
  ::mallopt(M_ARENA_MAX, 1);
  openMissingStandardStreams();
  // Whoever calls us: what we and our children make is for others to read at most.
  ::umask(::umask(kOthersMayNotWrite) | kOthersMayNotWrite);
  std::signal(SIGPIPE, SIG_IGN);
  // At a limit of the size of files, a write shall fail as on a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  // Where it is inherited as ignored, the kernel reaps our children and no exit status can be had.
  std::signal(SIGCHLD, SIG_DFL);
  try {
    return runWithOptions(argc, argv, environment);
  } catch (const std::exception& error) {
    Log_Level(3, "Failed to initialize bootforge: %s\n", error.what());
  } catch (...) {
    Log_Level(3, "Failed to initialize bootforge\n");
  }
  return 1;
}

}  // namespace bootforge
