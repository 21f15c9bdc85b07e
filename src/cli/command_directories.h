// Where commands are defined.
#pragma once

namespace bootforge {

/// A later directory wins over an earlier one, so the order matters: it is not that of the names.
inline constexpr const char* kCommandDirectories[] = {
    BOOTFORGE_COMMAND_DIR,
    BOOTFORGE_COMMAND_DIR "/int",
    BOOTFORGE_COMMAND_DIR "/int/ext",
    BOOTFORGE_COMMAND_DIR "/ext",
};

}  // namespace bootforge
