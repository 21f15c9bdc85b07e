#include "analyze/boot_input.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "analyze/known_plugins.h"
#include "analyze/recorded/gzip_text.h"
#include "util/system_error.h"
#include "util/unique_fd.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

constexpr const char* kStandardInput = "standard input";

/// What is open may be a pipe as well. A capture may hold all that a host said in its life, so more
/// is read than of files that a boot reads.
std::string readOpened(int file, const std::string& name) {
  constexpr std::size_t kMost = std::size_t{1} << 30U;
  constexpr std::size_t kChunk = std::size_t{1} << 18U;
  std::string content;
  ssize_t count = file < 0 ? -1 : 1;
  while (count > 0) {
    const std::size_t used = content.size();
    content.resize(used + kChunk);
    count = retryInterrupted([&] { return ::read(file, content.data() + used, kChunk); });
    content.resize(used + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (content.size() > kMost) throw UsageError(name + ": " + systemErrorText(EFBIG));
  }
  if (count < 0) throw UsageError(name + ": " + systemErrorText(errno));
  return content;
}

std::string readCallersFile(const std::string& path) {
  const UniqueFd file(
      retryInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY); }));
  return readOpened(file.get(), path);
}

/// A host that has only just begun to boot may have no /dev/stdin.
std::string readStandardInput() { return readOpened(STDIN_FILENO, kStandardInput); }

std::string unpacked(const std::string& path, std::string content) {
  PlainText text = plainText(std::move(content));
  if (text.cut) remark(path + ": the compressed data are damaged; read as far as they go");
  return std::move(text.text);
}

/// Reads a log in which something can be read.
ProfilingLog readLog(const std::string& path, std::string_view text, const KnownNames& names) {
  ProfilingLog log =
      readProfilingLog(text, [&](std::string_view name) { return names.contains(name); });
  if (log.sections.empty()) throw UsageError(path + ": this is no profiling log");
  return log;
}

void remarkAll(const std::string& path, const std::vector<std::string>& notes) {
  for (const std::string& note : notes) {
    remark(path.empty() ? note : path + ": " + note);
  }
}

const ProfileSection& sectionOf(const std::string& path, const ProfilingLog& log,
                                const BootOptions& options) {
  std::string reason;
  const ProfileSection* const section =
      chooseSection(log, options.section, options.daemons, reason);
  if (section == nullptr) throw UsageError(path + ": " + reason);
  return *section;
}

KnownNames namesOf(const std::vector<KnownPlugin>& known) {
  KnownNames names;
  for (const KnownPlugin& plugin : known) names.add(plugin.name);
  return names;
}

/// What ran and is in no description is shown as waiting for nobody, which people should know.
void remarkUndescribed(const std::string& path, const Timeline& timeline) {
  constexpr std::size_t kTold = 3;
  std::size_t count = 0;
  std::string names;
  for (const TimedPlugin& plugin : timeline.plugins) {
    if (!plugin.ran || plugin.known || ++count > kTold) continue;
    names += (count == 1 ? "" : ", ") + printable(plugin.name);
  }
  if (count == 0) return;
  if (count > kTold) names += " and " + std::to_string(count - kTold) + " more";
  remark(path + ": nothing in the image describes " + names +
         ": what they waited for is not known, and counts as nothing");
}

}  // namespace

void addSectionOption(CLI::App& verb, BootOptions& options) {
  verb.add_option("--section", options.section,
                  "which run of the log, counted from 0 (default: the boot, or with --daemons the "
                  "last daemon run)")
      ->option_text("N")
      ->transform(isWholeNumber())
      ->group("Boot");
}

void addRecordedBootOptions(CLI::App& verb, BootOptions& options) {
  addImageOptions(verb, options);
  addBootOptions(verb, options);
  addSectionOption(verb, options);
  verb.add_flag("--force", options.force,
                "go on although log and descriptions do not belong together")
      ->group("Boot");
}

std::vector<KnownPlugin> readKnownPlugins(const BootOptions& options) {
  const Image image(options.image());
  if (!options.daemons && image.pluginDirectoryError() != 0) {
    remark(image.pluginDirectory() + ": " + systemErrorText(image.pluginDirectoryError()) +
           "; nothing is known of who waits for whom");
  }
  return knownPlugins(image);
}

BootMessages readCapture(const std::string& path, const KnownNames& names, WhichRun which) {
  const bool isPiped = path == "-";
  const std::string name = isPiped ? kStandardInput : path;
  const std::string text = unpacked(name, isPiped ? readStandardInput() : readCallersFile(path));
  BootMessages messages = readMessages(text, names, which);
  if (!messages.readable) throw UsageError(name + ": there is no message of a boot in it");
  return messages;
}

RecordedBoot readBoot(const BootOptions& options) {
  std::optional<std::string> content = RootFolder(options.root).read(options.log);
  if (!content) throw UsageError(options.log + ": " + systemErrorText(errno));
  const std::string text = unpacked(options.log, *std::move(content));
  // What kind of run it is decides which descriptions belong to it.
  BootOptions ofImage = options;
  const ProfilingLog glance = readLog(options.log, text, {});
  ofImage.daemons = sectionOf(options.log, glance, options).kind == ProfileSection::Kind::Daemon;

  RecordedBoot boot;
  boot.known = readKnownPlugins(ofImage);
  KnownNames names = namesOf(boot.known);
  const ProfilingLog log = readLog(options.log, text, names);
  remarkAll(options.log, log.notes);
  const ProfileSection& section = sectionOf(options.log, log, options);
  for (const ProfiledPlugin& plugin : section.plugins) {
    if (!names.contains(plugin.name)) names.add(plugin.name);
  }
  if (!options.messages.empty()) {
    boot.messages = readCapture(options.messages, names, WhichRun::MostMentions);
  }
  boot.timeline = makeTimeline(section, boot.known, boot.messages ? &*boot.messages : nullptr);
  remarkAll(options.log, boot.timeline.notes);
  if (!boot.known.empty()) remarkUndescribed(options.log, boot.timeline);
  if (boot.timeline.contradictions.empty()) return boot;
  remarkAll({}, boot.timeline.contradictions);
  if (!options.force) {
    throw UsageError(options.log +
                     ": the log and the descriptions do not belong together; --force goes on");
  }
  return boot;
}

ProfileSection readCallersLog(const std::string& path, const BootOptions& options) {
  const ProfilingLog log = readLog(path, unpacked(path, readCallersFile(path)), {});
  remarkAll(path, log.notes);
  const ProfileSection& section = sectionOf(path, log, options);
  for (const ProfiledPlugin& plugin : section.plugins) {
    if (endedBeforeItsStart(plugin)) remark(path + ": " + noteOnItsEnd(plugin));
  }
  return section;
}

int tell(const CommonOptions& options, const Answer& answer) {
  for (const std::string& note : answer.notes) remark(note);
  if (!answer.output.empty()) writeOutput(options, answer.output);
  return answer.status;
}

}  // namespace bootforge::analyze
