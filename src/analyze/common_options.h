// The options that the verbs share.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/image/image.h"
#include "util/exception.h"

namespace bootforge::analyze {

/// Ends the program with status 2: a command line, an input or an output that cannot be used.
class UsageError : public Exception {
 public:
  using Exception::Exception;
};

enum Status : int { kGood = 0, kBad = 1, kUnusable = 2 };

/// What was given; each verb adds the options that it takes.
struct CommonOptions {
  std::string root = "/";
  std::string pluginDirectory = kDefaultPluginDirectory;
  std::string pluginFlags;
  std::vector<std::string> disabled;
  std::vector<std::string> plugins;
  std::vector<std::string> runOnce;
  bool daemons = false;
  std::string initList;
  std::string log = "/var/log/sysboot.log";
  std::string messages;
  std::string format = "text";
  std::string output;

  bool isJson() const { return format == "json"; }
  /// The image that was asked for. Throws UsageError when the list of init scripts cannot be read.
  ImageOptions image() const;
};

/// Reads the image that was asked for. It is there until the process ends: to take a large graph
/// apart costs as much as to link it. Called once.
Image& openImage(const CommonOptions& options);

/// Decimal digits below 10^18. The parser's own reading takes "010" for 8 and "-1" for 2^64 - 1.
std::optional<std::int64_t> wholeNumber(std::string_view text);

/// Checks that an option's value is such a number, for the parser to read.
CLI::Validator isWholeNumber();

/// Checks that a file has a name: that of an unset variable would count as no option at all.
CLI::Validator isFileName();

/// "--root" and what else says which image and which boot.
void addImageOptions(CLI::App& verb, CommonOptions& options);

/// "--format" with these choices, the first one the default, and "--output".
void addOutputOptions(CLI::App& verb, CommonOptions& options,
                      const std::vector<std::string>& formats);

/// "--log" and "--messages".
void addBootOptions(CLI::App& verb, CommonOptions& options);

/// Writes to standard output, or puts the file in place whole or not at all. Throws UsageError when
/// it cannot be written.
void writeOutput(const CommonOptions& options, std::string_view text);

/// Whether text goes to a terminal that shows colours; NO_COLOR is honoured.
bool isColourful(const CommonOptions& options);

/// The columns of the terminal that text goes to; nothing where there is none.
std::optional<std::size_t> terminalColumns(const CommonOptions& options);

/// The same; 80 where there is none.
std::size_t terminalWidth(const CommonOptions& options);

/// A remark on standard error.
void remark(const std::string& text);

}  // namespace bootforge::analyze
