// Any words as the program's command line: a mistake, a number that cannot be read, or options that
// keep what they promise and mean the same when they are said again.
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <boost/lexical_cast/bad_lexical_cast.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "main/command_line.h"
#include "main/run_options.h"

namespace {

using bootforge::CommandLine;
using bootforge::RunOptions;

constexpr std::int64_t kNoSeed = std::numeric_limits<std::int64_t>::max();

struct Meaning {
  CommandLine line;
  RunOptions options;
};

void require(bool condition) {
  if (!condition) std::abort();
}

std::optional<Meaning> parse(std::vector<std::string> words) {
  RunOptions& options = RunOptions::instance();
  options = RunOptions();
  options.randomSeed = kNoSeed;
  words.insert(words.begin(), "bootforge");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  optind = 0;  // glibc's way to begin anew
  std::optional<CommandLine> line =
      bootforge::parseCommandLine(static_cast<int>(words.size()), arguments.data());
  if (!line) return std::nullopt;
  return Meaning{*line, options};
}

template <typename Items>
void sayList(std::vector<std::string>& words, const char* option, const Items& items) {
  std::string text;
  for (const std::string& item : items) {
    require(!item.empty() && item.find(',') == std::string::npos);
    text += (text.empty() ? "" : ",") + item;
  }
  if (!text.empty()) words.push_back(std::string(option) + "=" + text);
}

/// Words that must mean the same.
std::vector<std::string> sayAgain(const Meaning& meaning) {
  const auto& [line, options] = meaning;
  std::vector<std::string> words;
  const auto sayIf = [&words](bool set, const std::string& word) {
    if (set) words.push_back(word);
  };
  sayIf(line.init, "--init");
  sayIf(options.trace, "--trace");
  sayIf(options.invoke, "--invoke");
  sayIf(options.verbose, "--verbose");
  sayIf(options.parallel, "--parallel");
  sayIf(options.interactive, "--interactive");
  sayIf(!options.method.empty(), "--method=" + options.method);
  const bool seeded = options.randomSeed != kNoSeed;
  sayIf(options.randomize,
        seeded ? "--randomize=" + std::to_string(options.randomSeed) : "--randomize");
  sayIf(line.dump, line.dumpPath.empty() ? "--dump-dependency-tree"
                                         : "--dump-dependency-tree=" + line.dumpPath);
  sayIf(line.daemon, options.daemonWait ? "--daemon=wait" : "--daemon");
  words.push_back("--daemon-wait-timeout=" + std::to_string(options.daemonWaitTimeout));
  words.push_back("--plugin-directory=" + line.pluginDirectory);
  sayList(words, "--plugin-flags", line.bootFlags);
  sayList(words, "--plugin", line.plugins);
  sayList(words, "--run-once", line.runOnce);
  sayList(words, "--disable-plugins", options.disabledPlugins);
  sayList(words, "--interactive-mode-requires", options.interactiveModeRequires);
  return words;
}

void check(const Meaning& meaning) {
  const auto& [line, options] = meaning;
  require(options.threadCount == 1 && options.pluginDirectory.empty() && !line.stop);
  require(!(options.parallel && options.interactive));
  require(line.daemon || !options.daemonWait);
  require(line.dump || line.dumpPath.empty());
  if (options.randomSeed != kNoSeed) {
    require(options.randomize &&
            options.randomSeed == static_cast<std::int32_t>(options.randomSeed));
  }
  const std::optional<Meaning> again = parse(sayAgain(meaning));
  require(again.has_value());
  require(sayAgain(*again) == sayAgain(meaning));
}

}  // namespace

extern "C" {

int LLVMFuzzerInitialize(int* argc, char*** argv);
int LLVMFuzzerInitialize(int*, char***) {
  // The usage line and the usage text. The fuzzer itself has kept its stream.
  stderr = std::fopen("/dev/null", "w");
  ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  return stderr == nullptr;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Words end at line ends here, so that seeds can be read.
  std::vector<std::string> words(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      words.emplace_back();
    } else if (data[i] != '\0') {
      words.back() += static_cast<char>(data[i]);
    }
  }
  words.pop_back();
  try {
    const std::optional<Meaning> meaning = parse(words);
    if (!meaning || meaning->line.help) return 0;
    check(*meaning);
    CommandLine line = meaning->line;
    RunOptions::instance() = meaning->options;
    if (bootforge::validate(line) && line.daemon) {
      require(line.stop == (meaning->options.method == "stop"));
    }
  } catch (const boost::bad_lexical_cast&) {
  }
  return 0;
}

}  // extern "C"
