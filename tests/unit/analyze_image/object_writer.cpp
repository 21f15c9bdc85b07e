#include "tests/unit/analyze_image/object_writer.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include "reading/native_record.h"

namespace bootforge::test {

ObjectWriter::ObjectWriter(std::uint16_t machine, bool isBigEndian)
    : machine_(machine), isBigEndian_(isBigEndian) {
  bytes_ = ELFMAG;
  putByte(ELFCLASS64);
  putByte(isBigEndian ? ELFDATA2MSB : ELFDATA2LSB);
  putByte(EV_CURRENT);
  putZeros(EI_NIDENT - bytes_.size());
  putShort(ET_DYN);
  putShort(machine);
  putWord(EV_CURRENT);
  putZeros(sizeof(Elf64_Ehdr) - bytes_.size());
}

std::uint64_t ObjectWriter::put(std::uint64_t value, std::size_t bytes) {
  const std::size_t at = bytes_.size();
  bytes_.resize(at + bytes);
  replace(at, value, bytes);
  return at;
}

void ObjectWriter::replace(std::size_t at, std::uint64_t value, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i, value >>= 8) {
    bytes_[at + (isBigEndian_ ? bytes - 1 - i : i)] = static_cast<char>(value & 0xff);
  }
}

std::uint64_t ObjectWriter::putText(std::string_view text) {
  const std::size_t at = bytes_.size();
  bytes_ += text;
  bytes_ += '\0';
  return at;
}

std::uint64_t ObjectWriter::putZeros(std::uint64_t count) {
  const std::size_t at = bytes_.size();
  bytes_.append(count, '\0');
  return at;
}

std::uint64_t ObjectWriter::putPointer(std::uint64_t target) {
  const std::uint64_t at = putLong(0);
  addRelocation(at, relative(), target);
  return at;
}

std::uint64_t ObjectWriter::relative() const {
  switch (machine_) {
    case EM_X86_64:
      return R_X86_64_RELATIVE;
    case EM_AARCH64:
      return R_AARCH64_RELATIVE;
    case EM_RISCV:
      return R_RISCV_RELATIVE;
    case EM_PPC64:
      return R_PPC64_RELATIVE;
    default:
      throw std::invalid_argument("a machine whose relocations are not known");
  }
}

std::uint64_t ObjectWriter::nameOf(std::string_view text) {
  const std::size_t at = names_.size();
  names_ += text;
  names_ += '\0';
  return at;
}

void ObjectWriter::addSymbol(std::string_view name, std::uint64_t address, std::uint64_t size,
                             std::uint16_t section) {
  symbols_.push_back({nameOf(name), address, size, section});
}

void ObjectWriter::addRelocation(std::uint64_t place, std::uint64_t info, std::uint64_t addend) {
  relocations_.push_back({place, info, addend});
}

void ObjectWriter::addDynamic(std::int64_t tag, std::uint64_t value) {
  dynamic_.push_back({static_cast<std::uint64_t>(tag), value});
}

void ObjectWriter::addDynamicName(std::int64_t tag, std::string_view name) {
  addDynamic(tag, nameOf(name));
}

void ObjectWriter::addSegment(std::uint32_t type, std::uint64_t address, std::uint64_t offset,
                              std::uint64_t sizeInFile, std::uint64_t sizeInMemory) {
  segments_.push_back({type, address, offset, sizeInFile, sizeInMemory});
}

void ObjectWriter::addRecords() {
  const std::uint64_t name = putText("up");
  align();
  const std::uint64_t provides = putPointer(name);
  putLong(0);
  const std::uint64_t metadata = putRecord(3);
  putLong(0);            // requires_
  putPointer(provides);  // provides
  putZeros(32);          // plugin_version, run_once and flags
  addSymbol(native::kMetadata, metadata, bytes_.size() - metadata);
  const std::uint64_t operations = putPointer(metadata);
  putLong(0);
  addSymbol(native::kOperations, operations, native::kOperationsSize);
}

std::uint64_t ObjectWriter::putRecord(std::uint32_t version) {
  align();
  const std::uint64_t at = putWord(version);
  putWord(0);
  return at;
}

void ObjectWriter::addRecordSymbols(std::uint64_t metadata, std::uint64_t operations) {
  addSymbol(native::kMetadata, metadata, native::metadataSize(1));
  addSymbol(native::kOperations, operations, native::kOperationsSize);
}

void ObjectWriter::useHashes(std::int64_t tag, std::uint64_t address) {
  addDynamic(tag, address);
  hasHashes_ = true;
}

std::string ObjectWriter::finish(std::uint64_t zerosBehind) {
  align();
  if (!relocations_.empty()) {
    addDynamic(DT_RELA, bytes_.size());
    addDynamic(DT_RELASZ, relocations_.size() * sizeof(Elf64_Rela));
  }
  for (const Triple& each : relocations_) {
    putLong(each.place);
    putLong(each.info);
    putLong(each.addend);
  }
  addDynamic(DT_SYMTAB, bytes_.size());
  putZeros(sizeof(Elf64_Sym));
  for (const Symbol& symbol : symbols_) {
    putWord(static_cast<std::uint32_t>(symbol.name));
    putByte(ELF64_ST_INFO(STB_GLOBAL, STT_OBJECT));
    putByte(STV_DEFAULT);
    putShort(symbol.section);
    putLong(symbol.address);
    putLong(symbol.size);
  }
  if (!hasHashes_) {
    useHashes(DT_HASH, putWord(1));
    putWord(static_cast<std::uint32_t>(symbols_.size() + 1));
  }
  addDynamic(DT_STRTAB, bytes_.size());
  bytes_ += names_;
  align();
  addDynamic(DT_NULL, 0);
  const std::size_t dynamic = bytes_.size();
  for (const Entry& entry : dynamic_) {
    putLong(entry.tag);
    putLong(entry.value);
  }
  addSegment(PT_DYNAMIC, dynamic, dynamic, bytes_.size() - dynamic, bytes_.size() - dynamic);
  const std::size_t headers = bytes_.size();
  const std::size_t size = headers + (segments_.size() + 1) * sizeof(Elf64_Phdr);
  addSegment(PT_LOAD, 0, 0, size, size + zerosBehind);
  for (const Segment& segment : segments_) {
    putWord(segment.type);
    putWord(PF_R | PF_W);
    putLong(segment.offset);
    putLong(segment.address);
    putLong(segment.address);
    putLong(segment.sizeInFile);
    putLong(segment.sizeInMemory);
    putLong(8);
  }
  replace(offsetof(Elf64_Ehdr, e_phoff), headers, 8);
  replace(offsetof(Elf64_Ehdr, e_ehsize), sizeof(Elf64_Ehdr), 2);
  replace(offsetof(Elf64_Ehdr, e_phentsize), sizeof(Elf64_Phdr), 2);
  replace(offsetof(Elf64_Ehdr, e_phnum), segments_.size(), 2);
  return bytes_;
}

}  // namespace bootforge::test
