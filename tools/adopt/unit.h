// The unit of a host with systemd.
#pragma once

#include <string>

namespace bootforge::adopt {

inline constexpr const char* kUnitName = "bootforge.service";
inline constexpr const char* kWants = "multi-user.target.wants";
/// The administrator's units, and those of packages.
inline constexpr const char* kOwnUnits = "/etc/systemd/system";
inline constexpr const char* kVendorUnits[] = {"/usr/lib/systemd/system", "/lib/systemd/system"};

/// Runs the plugins at each boot, with the record of what has been run.
std::string unitText(const std::string& bootforge);

}  // namespace bootforge::adopt
