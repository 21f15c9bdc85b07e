// The rules by which a plugin is left out of a run.
#pragma once

#include <list>
#include <set>
#include <string>
#include <vector>

namespace bootforge {

/// What is against a plugin. The deny list is looked at first; of flags both reasons are told where
/// both hold.
struct Objections {
  bool isDenied = false;
  std::vector<std::string> disabling;  // boot flags that disable it, ascending
  std::vector<std::string> missing;    // flags that it requires and the boot has not, ascending

  bool any() const { return isDenied || !disabling.empty() || !missing.empty(); }
};

Objections objectionsTo(const std::string& baseName, const std::set<std::string>& requiredFlags,
                        const std::set<std::string>& disablingFlags,
                        const std::set<std::string>& bootFlags,
                        const std::list<std::string>& denied);

/// The key of a run-once plugin, as the record is asked for it.
std::string runOnceKey(const std::string& name, const std::string& version);

/// The key as the record is told it: without characters outside "-a-zA-Z0-9._+". A plugin whose key
/// has others is never found again, so it runs every time.
std::string cleanedRunOnceKey(const std::string& key);

/// What the record says about a run-once plugin: true when it has run already. One that has not is
/// entered.
bool hasRunAlready(const std::string& name, const std::string& version,
                   std::set<std::string>& runOnce);

}  // namespace bootforge
