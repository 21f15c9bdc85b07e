// The files of a recorded boot, as the command line names them.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "analyze/common_options.h"
#include "analyze/recorded/answer.h"
#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/messages_reader.h"
#include "analyze/recorded/profiling_log_reader.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

struct BootOptions : CommonOptions {
  std::optional<std::size_t> section;
  bool force = false;

  Format dataFormat() const { return isJson() ? Format::Json : Format::Text; }
  TextStyle style() const { return {terminalWidth(*this), isColourful(*this)}; }
};

/// "--section".
void addSectionOption(CLI::App& verb, BootOptions& options);
/// All options of a verb about one recorded boot, but not those about output.
void addRecordedBootOptions(CLI::App& verb, BootOptions& options);

/// A recorded boot beside the image that it is a boot of.
struct RecordedBoot {
  Timeline timeline;
  std::vector<KnownPlugin> known;
  std::optional<BootMessages> messages;  // where the caller named a capture
};

/// Reads the log, the image and the messages, and says on standard error what is odd about them.
/// Throws UsageError when one of them cannot be read, or when log and image do not belong together
/// and nobody insists.
RecordedBoot readBoot(const BootOptions& options);

/// Reads the image. Says so when nothing can be read of it.
std::vector<KnownPlugin> readKnownPlugins(const BootOptions& options);

/// Reads a capture of messages; "-" is standard input. Throws UsageError when there is no message
/// of ours in it.
BootMessages readCapture(const std::string& path, const KnownNames& names, WhichRun which);

/// Reads one of the caller's logs and picks the section. Throws UsageError when there is none.
ProfileSection readCallersLog(const std::string& path, const BootOptions& options);

/// Writes an answer where the options say; gives the exit status.
int tell(const CommonOptions& options, const Answer& answer);

}  // namespace bootforge::analyze
