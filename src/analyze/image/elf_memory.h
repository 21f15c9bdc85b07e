// The memory of a shared object as the loader would lay it out, at address 0.
#pragma once

#include <gelf.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge::analyze {

/// Reads what program headers and the dynamic section name; section headers, which the loader does
/// not look at either, are not asked. Throws std::invalid_argument, with what is wrong, from its
/// constructor; the other functions say nothing for what is not there. Time and memory grow with
/// the file, whatever it says.
class ElfMemory {
 public:
  /// A symbol that the object defines.
  struct Symbol {
    std::uint64_t address = 0;
    std::uint64_t size = 0;   // 0 where the object does not say
    bool isAbsolute = false;  // it does not move with the object, so nothing of it is there
  };
  /// A pointer after relocation: none for one that another object fills.
  struct Pointer {
    bool isKnown = true;
    std::uint64_t address = 0;
    bool isAbsolute = false;  // no relocation made it point into the object
  };

  explicit ElfMemory(std::string_view file);

  std::uint16_t machine() const { return header_.e_machine; }
  std::optional<Symbol> findSymbol(std::string_view name) const;
  std::optional<std::int32_t> readInt32(std::uint64_t address) const;
  std::optional<unsigned char> readByte(std::uint64_t address) const;
  std::optional<Pointer> readPointer(std::uint64_t address) const;
  std::optional<std::string> readText(std::uint64_t address) const;
  /// The strings of the dynamic entries with that tag, in their order, split where the separator
  /// stands. Throws as the constructor does when there are more than a thousand, or 64 KiB of them.
  std::vector<std::string> dynamicStrings(std::int64_t tag, char separator = '\0') const;

 private:
  struct EndElf {
    void operator()(Elf* elf) const { elf_end(elf); }
  };
  struct Segment {
    std::uint64_t address;
    std::uint64_t offset;
    std::uint64_t fileSize;
    std::uint64_t size;
  };

  void readHeaders();
  void readDynamic(std::uint64_t offset, std::uint64_t size);
  void readRelocations(std::uint64_t address, std::uint64_t size);
  void readPackedRelocations(std::uint64_t address, std::uint64_t size);
  std::optional<std::uint64_t> symbolCount() const;
  std::uint64_t mostSymbols() const { return file_.size() / sizeof(Elf64_Sym); }
  std::optional<GElf_Sym> readSymbol(std::uint64_t index) const;
  const Segment* segmentAt(std::uint64_t address) const;
  /// The bytes that the file has from an address on, to the end of its segment's part in the file.
  std::string_view bytesAt(std::uint64_t address) const;
  /// Whether an address stands in the part of a segment that the loader fills with zeros.
  bool isZero(std::uint64_t address) const;
  template <typename Value>
  std::optional<Value> read(std::uint64_t address) const;
  std::optional<std::uint64_t> dynamic(std::int64_t tag) const;

  std::string_view file_;
  std::unique_ptr<Elf, EndElf> elf_;
  GElf_Ehdr header_{};
  bool isSwapped_ = false;
  std::vector<Segment> segments_;  // by address
  std::vector<GElf_Dyn> dynamic_;
  std::map<std::int64_t, std::uint64_t> values_;  // the first of each tag
  std::map<std::uint64_t, Pointer> relocated_;
};

}  // namespace bootforge::analyze
