// Where commands are defined.
#pragma once

namespace bootforge {

/// A later directory wins over an earlier one, so the order matters: it is not that of the names.
inline constexpr const char* kCommandDirectories[] = {
    "/usr/lib/nimbus/hypcli",
    "/usr/lib/nimbus/hypcli/int",
    "/usr/lib/nimbus/hypcli/int/ext",
    "/usr/lib/nimbus/hypcli/ext",
};

}  // namespace bootforge
