#include "analyze/image/native_object.h"

#include <elf.h>

#include <cstddef>
#include <stdexcept>

#include "analyze/image/elf_memory.h"
#include "bootforge/plugin.h"

namespace bootforge::analyze {
namespace {

class RecordReader {
 public:
  RecordReader(const ElfMemory& memory, NativeObject& object) : memory_(memory), object_(object) {}

  void read() {
    const auto operations = symbol(native::kOperations);
    const auto metadata = symbol(native::kMetadata);
    if (operations) readOperations(*operations);
    if (metadata) readMetadata(*metadata);
    if (isWild_) object_.recordFaults.emplace_back(native::kWildPointer);
  }

 private:
  std::optional<ElfMemory::Symbol> symbol(const char* name) {
    auto found = memory_.findSymbol(name);
    if (!found) object_.missingSymbols.emplace_back(name);
    return found;
  }

  static bool isShort(const ElfMemory::Symbol& symbol, std::size_t needed) {
    return symbol.size != 0 && symbol.size < needed;
  }

  void readOperations(const ElfMemory::Symbol& symbol) {
    if (symbol.isAbsolute) {
      isWild_ = true;
      return;
    }
    if (isShort(symbol, native::kOperationsSize)) {
      object_.recordFaults.emplace_back(native::kShortOperations);
      return;
    }
    const auto entry =
        pointerAt(symbol.address + offsetof(bootforge_operations, apply_host_profile));
    object_.record.hasApplyHostProfile = entry && (!entry->isKnown || entry->address != 0);
  }

  void readMetadata(const ElfMemory::Symbol& symbol) {
    NativeRecord& record = object_.record;
    const auto version = memory_.readInt32(symbol.address);
    if (!version || symbol.isAbsolute) {
      isWild_ = true;
      return;
    }
    record.apiVersion = *version;
    if (!native::isSupported(*version)) {
      object_.recordFaults.emplace_back(native::kUnsupportedVersion);
      return;
    }
    if (isShort(symbol, native::metadataSize(*version))) {
      object_.recordFaults.emplace_back(native::kShortMetadata);
      return;
    }
    const std::uint64_t at = symbol.address;
    record.provides = namesAt(at + offsetof(bootforge_metadata, provides));
    record.requires_ = namesAt(at + offsetof(bootforge_metadata, requires_));
    if (*version < 3) return;
    record.requiredFlags = namesAt(at + offsetof(bootforge_metadata, required_flags));
    record.disablingFlags = namesAt(at + offsetof(bootforge_metadata, disabling_flags));
    const auto runOnce = memory_.readByte(at + offsetof(bootforge_metadata, run_once));
    record.runOnce = runOnce.value_or(0) != 0;
    const auto text = targetAt(at + offsetof(bootforge_metadata, plugin_version));
    if (text) record.pluginVersion = textAt(*text);
  }

  std::optional<ElfMemory::Pointer> pointerAt(std::uint64_t address) {
    auto pointer = memory_.readPointer(address);
    if (!pointer) isWild_ = true;
    return pointer;
  }

  /// Where a pointer leads to in the object; nothing for a null pointer, and for one that another
  /// object fills, which cannot be known.
  std::optional<std::uint64_t> targetAt(std::uint64_t address) {
    const auto pointer = pointerAt(address);
    if (!pointer || !pointer->isKnown || pointer->address == 0) return std::nullopt;
    if (pointer->isAbsolute) {
      isWild_ = true;
      return std::nullopt;
    }
    return pointer->address;
  }

  std::string textAt(std::uint64_t address) {
    std::optional<std::string> text = memory_.readText(address);
    if (!text || text->size() + sizeof *text > budget_) {
      isWild_ = true;
      return {};
    }
    budget_ -= text->size() + sizeof *text;
    return *std::move(text);
  }

  /// The array that a field points to.
  std::vector<std::string> namesAt(std::uint64_t field) {
    std::vector<std::string> names;
    const auto array = targetAt(field);
    if (!array) return names;
    for (std::uint64_t at = *array;; at += 8) {
      const auto name = targetAt(at);
      if (!name) return names;
      names.push_back(textAt(*name));
      if (isWild_) return names;
    }
  }

  const ElfMemory& memory_;
  NativeObject& object_;
  bool isWild_ = false;
  // A small file may name one text a million times.
  std::size_t budget_ = 16U << 20;
};

NeededLibraries neededLibrariesOf(const ElfMemory& memory) {
  NeededLibraries libraries;
  libraries.names = memory.dynamicStrings(DT_NEEDED);
  libraries.folders = memory.dynamicStrings(DT_RUNPATH, ':');
  libraries.arePassedOn = libraries.folders.empty();
  if (libraries.arePassedOn) libraries.folders = memory.dynamicStrings(DT_RPATH, ':');
  return libraries;
}

}  // namespace

NeededLibraries readNeededLibraries(std::string_view file) {
  try {
    return neededLibrariesOf(ElfMemory(file));
  } catch (const std::invalid_argument&) {
    return {};
  }
}

NativeObject readNativeObject(std::string_view file) {
  NativeObject object;
  object.machine = machineOf(file).value_or(EM_NONE);
  try {
    const ElfMemory memory(file);
    object.libraries = neededLibrariesOf(memory);
    RecordReader(memory, object).read();
  } catch (const std::invalid_argument& error) {
    object.unloadable = error.what();
  }
  return object;
}

std::optional<std::uint16_t> machineOf(std::string_view head) {
  if (!head.starts_with(ELFMAG) || head.size() < EI_NIDENT + 4) return std::nullopt;
  const auto low = static_cast<unsigned char>(head[EI_NIDENT + 2]);
  const auto high = static_cast<unsigned char>(head[EI_NIDENT + 3]);
  const bool isBig = head[EI_DATA] == ELFDATA2MSB;
  return static_cast<std::uint16_t>(isBig ? low << 8 | high : high << 8 | low);
}

std::string machineName(std::uint16_t machine) {
  switch (machine) {
    case EM_X86_64:
      return "x86-64";
    case EM_AARCH64:
      return "AArch64";
    case EM_386:
      return "i386";
    case EM_ARM:
      return "ARM";
    case EM_RISCV:
      return "RISC-V";
    case EM_PPC64:
      return "PowerPC 64";
    default:
      return "machine " + std::to_string(machine);
  }
}

}  // namespace bootforge::analyze
