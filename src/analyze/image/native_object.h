// A native plugin's shared object, read without loading it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reading/native_record.h"

namespace bootforge::analyze {

/// What the loader has to find for an object before it takes it; ld.so(8).
struct NeededLibraries {
  std::vector<std::string> names;
  std::vector<std::string> folders;  // of its run path, "$ORIGIN" as it stands
  bool arePassedOn = false;          // an old run path holds for what its libraries need, too
};

/// What the headers, the dynamic section and the records of an object say. Pointers in the records
/// are filled by relocations, as the loader would; elf(5).
struct NativeObject {
  /// Why the loader would not take it, whatever the machine; empty when it would.
  std::string unloadable;
  std::uint16_t machine = 0;  // EM_X86_64 and so on; 0 for what is no ELF file

  NeededLibraries libraries;
  std::vector<std::string> missingSymbols;  // of the two that a plugin has
  std::vector<std::string> recordFaults;    // reasons of the orchestrator
  NativeRecord record;                      // whole when there is nothing wrong above

  bool isGood() const {
    return unloadable.empty() && missingSymbols.empty() && recordFaults.empty();
  }
};

/// Reads an object. Any bytes will do; nothing is trusted.
NativeObject readNativeObject(std::string_view file);

/// Of any object. Empty for a file that is none.
NeededLibraries readNeededLibraries(std::string_view file);

/// The machine that the head of an ELF file names, or nothing for another file.
std::optional<std::uint16_t> machineOf(std::string_view head);

/// "x86-64", "AArch64", or the number of a machine.
std::string machineName(std::uint16_t machine);

}  // namespace bootforge::analyze
