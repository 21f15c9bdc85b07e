// Which plugins take part in a run.
#pragma once

#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"

namespace bootforge {

/// What the run asks for.
struct Selection {
  std::set<std::string> bootFlags;
  std::list<std::string> denied;
  /// Keys of run-once plugins that have run; those that take part are added.
  std::set<std::string> runOnce;
};

/// What became of a plugin. The deny list is looked at first; of flags both reasons are told where
/// both hold.
struct Admission {
  Plugin* plugin = nullptr;
  bool isDenied = false;
  std::vector<std::string> disabling;  // boot flags that disable it, ascending
  std::vector<std::string> missing;    // flags that it requires and the boot has not, ascending
  bool hasRunAlready = false;          // a run-once plugin that the record knows

  bool isLeftOut() const { return isDenied || !disabling.empty() || !missing.empty(); }
};

/// Puts a plugin among those of the run, or, when the deny list or the flags are against it, among
/// those that are left out: they are marked done, so that the milestones they are tied to open as
/// if they had run. A run-once plugin that has run stays among those of the run, marked done as
/// well.
Admission admit(std::unique_ptr<Plugin> plugin, const std::string& baseName, Selection& selection,
                Catalogue& catalogue);

/// The key of a run-once plugin, as the record is asked for it.
std::string runOnceKey(const Plugin& plugin);

/// The key as the record is told it: without characters outside "-a-zA-Z0-9._+". A plugin whose key
/// has others is never found again, so it runs every time.
std::string cleanedRunOnceKey(const std::string& key);

}  // namespace bootforge
