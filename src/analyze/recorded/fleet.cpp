#include "analyze/recorded/fleet.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "analyze/recorded/boot_sample.h"
#include "analyze/recorded/fleet_view.h"
#include "analyze/recorded/gzip_text.h"
#include "analyze/recorded/messages_reader.h"
#include "util/regular_file.h"
#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kToldPaths = 3;

std::string withoutEnd(std::string text, std::string_view end) {
  if (text.ends_with(end)) text.resize(text.size() - end.size());
  return text;
}

/// "a/b.log" for "a/b.log", "a/b.log.gz" and so on, without either ending.
std::string stemOf(const std::string& path) { return withoutEnd(withoutEnd(path, ".gz"), ".log"); }

bool isLog(const std::string& name) {
  return !name.starts_with('.') && !withoutEnd(name, ".gz").ends_with(".messages");
}

}  // namespace

bool Fleet::add(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) {
    addFolder(path);
    return true;
  }
  addLog(path, stemOf(fs::path(path).filename().string()));
  return fs::exists(status);
}

void Fleet::addFolder(const std::string& folder) {
  // The order of the files decides nothing, but a person who looks on will like it.
  std::vector<fs::path> files;
  std::vector<fs::path> folders = {folder};
  while (!folders.empty()) {
    const fs::path current = std::move(folders.back());
    folders.pop_back();
    std::error_code error;
    for (fs::directory_iterator entry(current, error), end; !error && entry != end;
         entry.increment(error)) {
      std::error_code unknown;  // what vanishes meanwhile counts as a file that cannot be read
      if (entry->is_directory(unknown) && !entry->is_symlink(unknown)) {
        folders.push_back(entry->path());
      } else if (isLog(entry->path().filename().string())) {
        files.push_back(entry->path());
      }
    }
    if (error) noteUnreadable(current.string(), systemErrorText(error.value()));
  }
  std::sort(files.begin(), files.end());
  for (const fs::path& file : files) {
    const std::string below = file.parent_path().lexically_relative(folder).string();
    addLog(file.string(), below.empty() || below == "." ? stemOf(file.filename().string()) : below);
  }
}

void Fleet::noteUnreadable(const std::string& path, const std::string& reason) {
  ++unreadable_;
  if (unreadablePaths_.size() < kToldPaths) unreadablePaths_.push_back(path + ": " + reason);
}

void Fleet::addLog(const std::string& path, const std::string& host) {
  std::optional<std::string> content = readRegularFile(path.c_str());
  if (!content) {
    noteUnreadable(path, systemErrorText(errno));
    return;
  }
  const PlainText text = plainText(std::move(*content));
  const ProfilingLog log = readProfilingLog(text.text);
  std::string reason;
  const ProfileSection* const section = chooseSection(log, section_, daemons_, reason);
  if (section == nullptr) {
    noteUnreadable(path, log.sections.empty() ? "this is no profiling log" : reason);
    return;
  }
  ++read_;
  damaged_ += text.cut || !log.notes.empty() ? 1 : 0;
  const auto& lines = section->plugins;
  clockSet_ += std::any_of(lines.begin(), lines.end(), endedBeforeItsStart) ? 1 : 0;
  const BootSample sample = sampleOf(*section);
  if (sample.makespan) {
    boots_.push_back(*sample.makespan);
    hosts_[host].push_back(*sample.makespan);
  }
  for (const auto& [line, run] : sample.runs) {
    pluginOf(section->plugins[line].name).runs.push_back(run);
  }
  addFailures(path, *section);
}

Fleet::Plugin& Fleet::pluginOf(const std::string& name) {
  const auto [place, isNew] = pluginNumbers_.try_emplace(name, plugins_.size());
  if (isNew) plugins_.emplace_back().name = name;
  return plugins_[place->second];
}

void Fleet::addFailures(const std::string& logPath, const ProfileSection& section) {
  const std::optional<std::string> capture =
      readRegularFile((stemOf(logPath) + ".messages").c_str());
  if (!capture) return;
  KnownNames names;
  for (const ProfiledPlugin& plugin : section.plugins) names.add(plugin.name);
  const BootMessages messages = readMessages(*capture, names, WhichRun::MostMentions);
  if (!messages.readable) return;
  for (const ProfiledPlugin& line : section.plugins) {
    Plugin& plugin = pluginOf(line.name);
    plugin.failuresKnown = true;
    const auto told = messages.plugins.find(line.name);
    if (told == messages.plugins.end()) continue;
    if (told->second.outcome == PluginMessages::Outcome::Failed) ++plugin.failures;
  }
}

Answer Fleet::answer(bool byHost, Format format, const TextStyle& style) {
  FleetView view;
  view.boots = read_;
  view.unreadable = unreadable_;
  view.damaged = damaged_;
  view.boot = distributionOf(boots_);
  for (Plugin& plugin : plugins_) {
    if (plugin.runs.empty() && plugin.failures == 0) continue;
    FleetView::Plugin& row = view.plugins.emplace_back();
    row.name = plugin.name;
    row.runs = distributionOf(plugin.runs);
    if (plugin.failuresKnown) row.failures = plugin.failures;
  }
  // The slowest first.
  std::sort(view.plugins.begin(), view.plugins.end(), [](const auto& one, const auto& other) {
    return one.runs.p90 != other.runs.p90 ? one.runs.p90 > other.runs.p90 : one.name < other.name;
  });
  for (auto& [host, values] : hosts_) {
    HostBoots& row = view.hosts.emplace_back();
    row.host = host;
    row.makespans = distributionOf(values);
    row.doubledMedian = doubledMedian(values);
  }
  scoreHosts(view.hosts);
  Answer answer;
  answer.output = format == Format::Json ? fleetJson(view, byHost) : fleetText(view, byHost, style);
  answer.notes = unreadablePaths_;
  if (unreadable_ > unreadablePaths_.size()) {
    answer.notes.push_back("and " + std::to_string(unreadable_ - unreadablePaths_.size()) +
                           " more that cannot be read");
  }
  if (clockSet_ > 0) {
    answer.notes.push_back("in " + std::to_string(clockSet_) +
                           " of the logs a plugin ended before it started (was the clock set?); "
                           "that counts as a run of 0");
  }
  return answer;
}

}  // namespace bootforge::analyze
