#include "analyze/common_options.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "reading/name_list.h"
#include "reading/number.h"
#include "util/afstream.h"
#include "util/regular_file.h"
#include "util/system_error.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

constexpr const char* kImageGroup = "Image";
constexpr const char* kOutputGroup = "Output";

std::vector<std::string> allItems(const std::vector<std::string>& lists) {
  std::vector<std::string> items;
  for (const std::string& list : lists) {
    for (std::string& item : itemsOf(list)) items.push_back(std::move(item));
  }
  return items;
}

void writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = retryInterrupted([&] { return ::write(file, text.data(), text.size()); });
    if (count < 0) throw UsageError("standard output: " + systemErrorText(errno));
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// A new file is for whom the umask lets see it, as any program's output is.
void openToReaders(const std::string& path) {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  constexpr mode_t kEverybody = 0666;
  if (::chmod(path.c_str(), kEverybody & ~mask) != 0) {
    throw UsageError(path + ": " + systemErrorText(errno));
  }
}

/// What is there and no regular file, a terminal or a pipe, is written to, not replaced.
bool isReplaceable(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

template <typename Stream>
void writeFile(Stream& file, const std::string& path, std::string_view text) {
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.flush();
  if (!file) throw UsageError(path + ": " + systemErrorText(errno));
}

}  // namespace

ImageOptions CommonOptions::image() const {
  ImageOptions image;
  image.root = root;
  image.pluginDirectory = pluginDirectory;
  const std::vector<std::string> flags = itemsOf(pluginFlags);
  image.selection.bootFlags = {flags.begin(), flags.end()};
  const std::vector<std::string> denied = allItems(disabled);
  image.selection.denied = {denied.begin(), denied.end()};
  const std::vector<std::string> keys = allItems(runOnce);
  image.selection.runOnce = {keys.begin(), keys.end()};
  image.plugins = allItems(plugins);
  image.daemons = daemons;
  if (!initList.empty()) {
    image.initList = readRegularFile(initList.c_str());
    if (!image.initList) throw UsageError(initList + ": " + systemErrorText(errno));
  }
  return image;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  constexpr std::int64_t kBeyond = 1'000'000'000'000'000'000;
  const auto number = numberIn<std::int64_t>(text);
  return text.starts_with('-') || number >= kBeyond ? std::nullopt : number;
}

CLI::Validator isWholeNumber() {
  return CLI::Validator(
      [](std::string& text) {
        const std::optional<std::int64_t> number = wholeNumber(text);
        if (!number) return '"' + text + "\" is no whole number";
        text = std::to_string(*number);
        return std::string();
      },
      "");
}

CLI::Validator isFileName() {
  return CLI::Validator(
      [](const std::string& text) {
        return std::string(text.empty() ? "the name of the file is empty" : "");
      },
      "");
}

Image& openImage(const CommonOptions& options) {
  static auto* const image = new Image(options.image());
  for (const std::string& path : image->unread()) {
    remark(path + ": " + systemErrorText(EACCES) +
           "; a boot reads it, and what it says is missing");
  }
  return *image;
}

void addImageOptions(CLI::App& verb, CommonOptions& options) {
  verb.add_option("--root", options.root, "the image or host to look at (default /)")
      ->option_text("DIR")
      ->group(kImageGroup);
  verb.add_option("--plugin-directory", options.pluginDirectory,
                  "the plugin folder, inside the root")
      ->option_text("DIR")
      ->group(kImageGroup);
  verb.add_option("--plugin-flags", options.pluginFlags, "the boot flags that are given")
      ->option_text("FLAG,...")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->group(kImageGroup);
  verb.add_option("--disable-plugins", options.disabled, "names of plugins that are denied")
      ->option_text("NAME,...")
      ->allow_extra_args(false)
      ->group(kImageGroup);
  verb.add_option("--plugin", options.plugins, "files to load in place of the whole folder")
      ->option_text("FILE,...")
      ->allow_extra_args(false)
      ->group(kImageGroup);
  verb.add_option("--run-once", options.runOnce, "keys of run-once plugins that have run")
      ->option_text("KEY,...")
      ->allow_extra_args(false)
      ->group(kImageGroup);
  verb.add_flag("--daemons", options.daemons, "the init scripts in place of the plugins")
      ->group(kImageGroup);
  verb.add_option("--init-list", options.initList,
                  "lines PATH PRIORITY in place of what the image's init scripts say")
      ->option_text("FILE")
      ->check(isFileName())
      ->group(kImageGroup);
}

void addBootOptions(CLI::App& verb, CommonOptions& options) {
  verb.add_option("--log", options.log,
                  "the profiling log, inside the root (default /var/log/sysboot.log)")
      ->option_text("FILE")
      ->check(isFileName())
      ->group("Boot");
  verb.add_option("--messages", options.messages,
                  "a capture of the boot's messages (-: standard input)")
      ->option_text("FILE")
      ->check(isFileName())
      ->group("Boot");
}

void addOutputOptions(CLI::App& verb, CommonOptions& options,
                      const std::vector<std::string>& formats) {
  std::string choices;
  for (const std::string& format : formats) choices += (choices.empty() ? "" : "|") + format;
  verb.add_option("--format", options.format, "default: " + formats.front())
      ->option_text(choices)
      ->check(CLI::IsMember(formats))
      ->group(kOutputGroup);
  verb.add_option("--output", options.output, "in place of standard output")
      ->option_text("FILE")
      ->check(isFileName())
      ->group(kOutputGroup);
}

void writeOutput(const CommonOptions& options, std::string_view text) {
  if (options.output.empty()) {
    writeAll(STDOUT_FILENO, text);
    return;
  }
  errno = 0;  // what it holds when a stream fails is the reason
  if (!isReplaceable(options.output)) {
    std::ofstream file(options.output, std::ios::binary);
    writeFile(file, options.output, text);
    return;
  }
  const bool isNew = ::access(options.output.c_str(), F_OK) != 0;
  try {
    afstream file;
    file.open(options.output.c_str(), std::ios::trunc | std::ios::binary);
    writeFile(file, options.output, text);
    file.commit();
    if (isNew) openToReaders(options.output);
  } catch (const std::runtime_error& error) {
    throw UsageError(error.what());
  }
}

bool isColourful(const CommonOptions& options) {
  const char* const refusal = std::getenv("NO_COLOR");
  if (refusal != nullptr && *refusal != '\0') return false;
  const char* const terminal = std::getenv("TERM");
  if (terminal != nullptr && std::string_view(terminal) == "dumb") return false;
  return options.output.empty() && ::isatty(STDOUT_FILENO) == 1;
}

std::optional<std::size_t> terminalColumns(const CommonOptions& options) {
  winsize size{};
  if (!options.output.empty() || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {};
  if (size.ws_col == 0) return {};
  return size.ws_col;
}

std::size_t terminalWidth(const CommonOptions& options) {
  if (const std::optional<std::size_t> columns = terminalColumns(options)) return *columns;
  constexpr std::size_t kUsual = 80;
  constexpr std::int64_t kMost = 10'000;
  const char* const wish = std::getenv("COLUMNS");
  const std::int64_t columns = wish == nullptr ? 0 : wholeNumber(wish).value_or(0);
  return columns > 0 && columns <= kMost ? static_cast<std::size_t>(columns) : kUsual;
}

void remark(const std::string& text) {
  std::cerr << "bootforge-analyze: " << printable(text) << '\n';
}

}  // namespace bootforge::analyze
