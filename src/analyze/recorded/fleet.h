// The boots of many hosts.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/profiling_log_reader.h"

namespace bootforge::analyze {

/// The durations of all boots: eight bytes for each plugin and boot.
class Fleet {
 public:
  /// Which section of each log counts.
  Fleet(std::optional<std::size_t> section, bool daemons) : section_(section), daemons_(daemons) {}

  /// Adds a log, or every log below a folder: every file that is not hidden and whose name does not
  /// end in ".messages". What cannot be read is counted. False when there is no such file or
  /// folder.
  bool add(const std::string& path);

  /// Whether no log could be read.
  bool isEmpty() const { return read_ == 0; }

  Answer answer(bool byHost, Format format, const TextStyle& style);

 private:
  struct Plugin {
    std::string name;
    std::vector<std::int64_t> runs;
    std::size_t failures = 0;
    bool failuresKnown = false;  // one of its boots came with messages
  };

  void addFolder(const std::string& folder);
  void addLog(const std::string& path, const std::string& host);
  Plugin& pluginOf(const std::string& name);
  void addFailures(const std::string& logPath, const ProfileSection& section);
  void noteUnreadable(const std::string& path, const std::string& reason);

  const std::optional<std::size_t> section_;
  const bool daemons_;
  std::size_t read_ = 0;
  std::size_t damaged_ = 0;
  std::size_t clockSet_ = 0;  // logs with an end before its start
  std::size_t unreadable_ = 0;
  std::vector<std::string> unreadablePaths_;  // the first few, with the reason
  std::vector<std::int64_t> boots_;
  std::vector<Plugin> plugins_;
  std::unordered_map<std::string, std::size_t> pluginNumbers_;
  std::map<std::string, std::vector<std::int64_t>> hosts_;
};

}  // namespace bootforge::analyze
