// The record of run-once plugins, from one run to the next.
#pragma once

#include <set>
#include <string>

namespace bootforge {

/// A gzip file on the boot bank with one line: "bootforge.run-once=" and every key, each followed
/// by a comma.
inline constexpr const char* kRunOnceRecord = "/bootbank/bootfrge.gz";

/// Adds the keys of the record to the set. A record that is missing, damaged anywhere or larger
/// than kReadLimit, unpacked or not, adds nothing.
void loadRunOnceRecord(std::set<std::string>& keys);

/// Replaces the record in one step. Throws std::exception when that fails, the old record is then
/// as it was, and when the new one is in place but may not survive a power cut.
void saveRunOnceRecord(const std::set<std::string>& keys);

}  // namespace bootforge
