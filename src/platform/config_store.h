// The host's configuration store.
#pragma once

namespace HypConfigStore {

/// Ends the automatic-configuration phase. Throws std::exception.
void EndAutoConf();
/// Removes what the boot left in the store. Throws std::exception.
void CleanupBootState();

}  // namespace HypConfigStore
