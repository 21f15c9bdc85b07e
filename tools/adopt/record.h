// What enable did, written down before it is done.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/adopt/lines.h"
#include "tools/adopt/tree.h"

namespace bootforge::adopt {

/// Something that is made, or changed. The paths lead through no link.
struct Step {
  enum class Kind { kFolder, kLink, kFile, kChange };

  Kind kind = Kind::kFolder;
  std::string path;
  std::string content;  // of a new file; where a link leads
  // Of a file that is changed: the name that the original gets, and what becomes of its lines.
  std::string original;
  std::vector<Change> changes;
};

/// A file in JSON, with a line for each step.
struct Record {
  std::string init;  // "sysvinit", "busybox" or "systemd"
  std::vector<Step> steps;
};

inline constexpr const char* kRecord = "/etc/bootforge-adopt.json";

/// The record at a path; nothing where there is none. Throws Exception for a file that is no such
/// record, and Failure.
std::optional<Record> readRecord(const Tree& tree, const std::string& path);

std::string textOf(const Record& record);

}  // namespace bootforge::adopt
