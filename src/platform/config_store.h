// The host's configuration store.
#pragma once

namespace HypConfigStore {

/// Ends the automatic-configuration phase. Throws std::exception.
void EndAutoConf();
/// Removes what the boot left in the store. What is mounted in it is left alone, and logged at
/// level 3. Throws std::exception after everything that can be removed is gone, when something
/// cannot.
void CleanupBootState();

}  // namespace HypConfigStore
