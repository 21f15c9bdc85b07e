// Shared objects made by hand: other machines, odd layouts, hostile numbers.
#pragma once

#include <elf.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge::test {

/// An address that no segment covers.
inline constexpr std::uint64_t kElsewhere = std::uint64_t{1} << 40;

/// Writes an object piece by piece. One segment takes the whole file, so that addresses are
/// offsets; the headers of segments are the last thing in it, and this segment's the last of those.
class ObjectWriter {
 public:
  explicit ObjectWriter(std::uint16_t machine = EM_X86_64, bool isBigEndian = false);

  // Each gives the address of what it has put at the end.
  std::uint64_t putByte(std::uint8_t value) { return put(value, 1); }
  std::uint64_t putShort(std::uint16_t value) { return put(value, 2); }
  std::uint64_t putWord(std::uint32_t value) { return put(value, 4); }
  std::uint64_t putLong(std::uint64_t value) { return put(value, 8); }
  std::uint64_t putText(std::string_view text);
  std::uint64_t putZeros(std::uint64_t count);
  /// A long that a relocation makes a pointer to the target.
  std::uint64_t putPointer(std::uint64_t target);

  /// Symbols, relocations and the dynamic section are written by finish().
  void addSymbol(std::string_view name, std::uint64_t address, std::uint64_t size,
                 std::uint16_t section = 1);
  void addRelocation(std::uint64_t place, std::uint64_t info, std::uint64_t addend);
  void addDynamic(std::int64_t tag, std::uint64_t value);
  /// Of an entry whose value is a name in the table of names.
  void addDynamicName(std::int64_t tag, std::string_view name);
  void addSegment(std::uint32_t type, std::uint64_t address, std::uint64_t offset,
                  std::uint64_t sizeInFile, std::uint64_t sizeInMemory);

  /// A plugin's two records, version 3, that provide the milestone `up`.
  void addRecords();
  /// The head of a metadata record; its fields are what is put behind it.
  std::uint64_t putRecord(std::uint32_t version);
  /// Names the records of version 1 or 2.
  void addRecordSymbols(std::uint64_t metadata, std::uint64_t operations);
  /// A table of hashes in the place of the plain one, whose only use is the number of symbols.
  void useHashes(std::int64_t tag, std::uint64_t address);
  void align() { putZeros((8 - bytes_.size() % 8) % 8); }

  /// Writes the tables and the headers; zerosBehind: how far the segment goes on in memory.
  std::string finish(std::uint64_t zerosBehind = 0);
  /// The machine's relocation for a pointer into the object itself.
  std::uint64_t relative() const;

 private:
  struct Segment {
    std::uint32_t type;
    std::uint64_t address, offset, sizeInFile, sizeInMemory;
  };
  struct Triple {
    std::uint64_t place, info, addend;
  };
  struct Symbol {
    std::uint64_t name, address, size;
    std::uint16_t section;
  };
  struct Entry {
    std::uint64_t tag, value;
  };

  std::uint64_t put(std::uint64_t value, std::size_t bytes);
  void replace(std::size_t at, std::uint64_t value, std::size_t bytes);
  std::uint64_t nameOf(std::string_view text);

  std::uint16_t machine_;
  bool isBigEndian_;
  std::string bytes_;
  std::string names_ = std::string(1, '\0');
  std::vector<Symbol> symbols_;
  std::vector<Triple> relocations_;
  std::vector<Entry> dynamic_;
  bool hasHashes_ = false;
  std::vector<Segment> segments_;
};

}  // namespace bootforge::test
