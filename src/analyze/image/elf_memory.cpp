#include "analyze/image/elf_memory.h"

#include <algorithm>
#include <bit>
#include <boost/algorithm/string/split.hpp>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace bootforge::analyze {
namespace {

[[noreturn]] void fail(const char* reason) { throw std::invalid_argument(reason); }

/// What a relocation does to the pointer at its place.
enum class Effect { None, Relative, Symbol };

Effect effectOf(std::uint16_t machine, std::uint64_t type) {
  switch (machine) {
    case EM_X86_64:
      if (type == R_X86_64_RELATIVE) return Effect::Relative;
      return type == R_X86_64_64 || type == R_X86_64_GLOB_DAT ? Effect::Symbol : Effect::None;
    case EM_AARCH64:
      if (type == R_AARCH64_RELATIVE) return Effect::Relative;
      return type == R_AARCH64_ABS64 || type == R_AARCH64_GLOB_DAT ? Effect::Symbol : Effect::None;
    case EM_RISCV:
      if (type == R_RISCV_RELATIVE) return Effect::Relative;
      return type == R_RISCV_64 ? Effect::Symbol : Effect::None;
    case EM_PPC64:
      if (type == R_PPC64_RELATIVE) return Effect::Relative;
      return type == R_PPC64_ADDR64 ? Effect::Symbol : Effect::None;
    default:
      return Effect::None;
  }
}

bool areRelocationsKnown(std::uint16_t machine) {
  return machine == EM_X86_64 || machine == EM_AARCH64 || machine == EM_RISCV ||
         machine == EM_PPC64;
}

constexpr std::int64_t kPackedRelocations = 36;  // DT_RELR, which older headers do not have
constexpr std::int64_t kPackedRelocationsSize = 35;
constexpr std::size_t kMostStrings = 1000;
constexpr std::size_t kLongestStrings = 64U << 10;

}  // namespace

ElfMemory::ElfMemory(std::string_view file) : file_(file) {
  static const bool isUsable = elf_version(EV_CURRENT) != EV_NONE;
  if (!isUsable) fail("libelf is of another version");
  if (!file.starts_with(ELFMAG)) fail("invalid ELF header");
  if (file.size() < sizeof(Elf64_Ehdr)) fail("file too short");
  if (file[EI_CLASS] != ELFCLASS64) fail("wrong ELF class");
  // libelf only reads what is open for reading only; its interface has no constant pointer.
  elf_.reset(elf_memory(const_cast<char*>(file.data()), file.size()));
  if (!elf_ || gelf_getehdr(elf_.get(), &header_) == nullptr) fail("invalid ELF header");
  isSwapped_ = (file[EI_DATA] == ELFDATA2MSB) != (std::endian::native == std::endian::big);
  if (header_.e_type != ET_DYN) fail("only ET_DYN and ET_EXEC can be loaded");
  readHeaders();
  const std::optional<std::uint64_t> flags = dynamic(DT_FLAGS_1);
  if (flags && (*flags & DF_1_PIE) != 0) {
    fail("cannot dynamically load position-independent executable");
  }
  const auto readTable = [this](std::int64_t place, std::int64_t length, auto readIt) {
    const std::optional<std::uint64_t> address = dynamic(place);
    const std::optional<std::uint64_t> size = dynamic(length);
    if (address && size) (this->*readIt)(*address, std::min<std::uint64_t>(*size, file_.size()));
  };
  readTable(DT_RELA, DT_RELASZ, &ElfMemory::readRelocations);
  readTable(kPackedRelocations, kPackedRelocationsSize, &ElfMemory::readPackedRelocations);
}

void ElfMemory::readHeaders() {
  const std::uint64_t end = header_.e_phoff + std::uint64_t{header_.e_phnum} * header_.e_phentsize;
  if (header_.e_phentsize != sizeof(Elf64_Phdr)) fail("ELF file's phentsize not the expected size");
  if (end > file_.size() || end < header_.e_phoff) fail("file too short");
  std::optional<GElf_Phdr> dynamic;
  for (int i = 0; i < header_.e_phnum; ++i) {
    GElf_Phdr program{};
    if (gelf_getphdr(elf_.get(), i, &program) == nullptr) fail("file too short");
    const bool isInFile =
        program.p_offset <= file_.size() && program.p_filesz <= file_.size() - program.p_offset;
    if (program.p_type == PT_LOAD) {
      if (!isInFile || program.p_filesz > program.p_memsz) fail("file too short");
      segments_.push_back({program.p_vaddr, program.p_offset, program.p_filesz, program.p_memsz});
    } else if (program.p_type == PT_DYNAMIC) {
      if (!isInFile) fail("file too short");
      dynamic = program;
    }
  }
  if (segments_.empty()) fail("object file has no loadable segments");
  if (!dynamic) fail("object file has no dynamic section");
  // They stand in this order in every good object.
  std::stable_sort(
      segments_.begin(), segments_.end(),
      [](const Segment& one, const Segment& other) { return one.address < other.address; });
  readDynamic(dynamic->p_offset, dynamic->p_filesz);
}

void ElfMemory::readDynamic(std::uint64_t offset, std::uint64_t size) {
  Elf_Data* const data =
      elf_getdata_rawchunk(elf_.get(), static_cast<std::int64_t>(offset), size, ELF_T_DYN);
  if (data == nullptr) fail("object file has no dynamic section");
  GElf_Dyn entry{};
  for (int i = 0; gelf_getdyn(data, i, &entry) != nullptr && entry.d_tag != DT_NULL; ++i) {
    dynamic_.push_back(entry);
    values_.try_emplace(entry.d_tag, entry.d_un.d_val);
  }
}

void ElfMemory::readRelocations(std::uint64_t address, std::uint64_t size) {
  constexpr std::uint64_t kEntry = sizeof(Elf64_Rela);
  for (std::uint64_t at = 0; at + kEntry <= size; at += kEntry) {
    const auto offset = read<std::uint64_t>(address + at);
    const auto info = read<std::uint64_t>(address + at + 8);
    const auto addend = read<std::uint64_t>(address + at + 16);
    if (!offset || !info || !addend) return;
    const Effect effect = effectOf(machine(), GELF_R_TYPE(*info));
    if (effect == Effect::Relative) relocated_[*offset] = {true, *addend};
    if (effect != Effect::Symbol) continue;
    const std::optional<GElf_Sym> symbol = readSymbol(GELF_R_SYM(*info));
    if (symbol && symbol->st_shndx != SHN_UNDEF) {
      relocated_[*offset] = {true, symbol->st_value + *addend, symbol->st_shndx == SHN_ABS};
    } else {
      relocated_[*offset] = {false, 0};
    }
  }
}

// Addresses of pointers to be moved with the object, each followed by bitmaps, whose lowest bit is
// set, for the 63 pointers behind it.
void ElfMemory::readPackedRelocations(std::uint64_t address, std::uint64_t size) {
  constexpr std::uint64_t kPointer = 8;
  constexpr std::uint64_t kBits = 63;
  std::uint64_t next = 0;
  // A bitmap names up to 63 pointers, any number of which need not be in the file.
  std::size_t left = file_.size() / kPointer;
  const auto relocate = [this, &left](std::uint64_t place) {
    if (left-- == 0) fail("too many packed relocations");
    if (const auto value = read<std::uint64_t>(place)) relocated_[place] = {true, *value};
  };
  for (std::uint64_t at = 0; at + kPointer <= size; at += kPointer) {
    const auto entry = read<std::uint64_t>(address + at);
    if (!entry) return;
    if ((*entry & 1) == 0) {
      relocate(*entry);
      next = *entry + kPointer;
      continue;
    }
    for (std::uint64_t bit = 0; bit < kBits; ++bit) {
      if ((*entry >> (bit + 1) & 1) != 0) relocate(next + bit * kPointer);
    }
    next += kBits * kPointer;
  }
}

std::optional<std::uint64_t> ElfMemory::dynamic(std::int64_t tag) const {
  const auto value = values_.find(tag);
  return value == values_.end() ? std::nullopt : std::optional(value->second);
}

// Where segments overlap, which no linker makes them do, the last one counts.
const ElfMemory::Segment* ElfMemory::segmentAt(std::uint64_t address) const {
  const auto next = std::upper_bound(
      segments_.begin(), segments_.end(), address,
      [](std::uint64_t wanted, const Segment& segment) { return wanted < segment.address; });
  if (next == segments_.begin()) return nullptr;
  const Segment& segment = *std::prev(next);
  return address - segment.address < segment.size ? &segment : nullptr;
}

std::string_view ElfMemory::bytesAt(std::uint64_t address) const {
  const Segment* const segment = segmentAt(address);
  if (segment == nullptr || address - segment->address >= segment->fileSize) return {};
  const std::uint64_t into = address - segment->address;
  return file_.substr(segment->offset + into, segment->fileSize - into);
}

bool ElfMemory::isZero(std::uint64_t address) const {
  const Segment* const segment = segmentAt(address);
  return segment != nullptr && address - segment->address >= segment->fileSize;
}

template <typename Value>
std::optional<Value> ElfMemory::read(std::uint64_t address) const {
  const std::string_view bytes = bytesAt(address);
  if (bytes.empty() && isZero(address)) return Value{};
  if (bytes.size() < sizeof(Value)) return std::nullopt;
  unsigned char raw[sizeof(Value)];
  std::memcpy(raw, bytes.data(), sizeof raw);
  if (isSwapped_) std::reverse(raw, raw + sizeof raw);
  Value value;
  std::memcpy(&value, raw, sizeof value);
  return value;
}

std::optional<std::int32_t> ElfMemory::readInt32(std::uint64_t address) const {
  return read<std::int32_t>(address);
}

std::optional<unsigned char> ElfMemory::readByte(std::uint64_t address) const {
  return read<unsigned char>(address);
}

std::optional<ElfMemory::Pointer> ElfMemory::readPointer(std::uint64_t address) const {
  const auto place = relocated_.find(address);
  if (place != relocated_.end()) return place->second;
  const auto value = read<std::uint64_t>(address);
  if (!value) return std::nullopt;
  return Pointer{true, *value, areRelocationsKnown(machine())};
}

std::optional<std::string> ElfMemory::readText(std::uint64_t address) const {
  const std::string_view bytes = bytesAt(address);
  if (bytes.empty() && isZero(address)) return std::string();
  const std::size_t end = bytes.find('\0');
  if (end != std::string_view::npos) return std::string(bytes.substr(0, end));
  // The text may end where the zeros begin.
  if (!bytes.empty() && isZero(address + bytes.size())) return std::string(bytes);
  return std::nullopt;
}

std::vector<std::string> ElfMemory::dynamicStrings(std::int64_t tag, char separator) const {
  std::vector<std::string> strings;
  std::size_t length = 0;
  const std::optional<std::uint64_t> table = dynamic(DT_STRTAB);
  if (!table) return strings;
  for (const GElf_Dyn& entry : dynamic_) {
    if (entry.d_tag != tag) continue;
    const auto text = readText(*table + entry.d_un.d_val);
    if (!text) continue;
    length += text->size();
    if (length > kLongestStrings) fail("the names of its libraries and folders are too long");
    std::vector<std::string> parts;
    boost::algorithm::split(parts, *text, [separator](char each) { return each == separator; });
    std::move(parts.begin(), parts.end(), std::back_inserter(strings));
    if (strings.size() > kMostStrings) fail("too many libraries or folders");
  }
  return strings;
}

std::optional<std::uint64_t> ElfMemory::symbolCount() const {
  if (const auto hash = dynamic(DT_HASH)) return read<std::uint32_t>(*hash + 4);
  const auto hash = dynamic(DT_GNU_HASH);
  if (!hash) return std::nullopt;
  // The table of GNU hashes does not say how many symbols there are: the last chain ends with the
  // last symbol.
  const auto buckets = read<std::uint32_t>(*hash);
  const auto first = read<std::uint32_t>(*hash + 4);
  const auto words = read<std::uint32_t>(*hash + 8);
  if (!buckets || !first || !words || *buckets > file_.size() / 4) return std::nullopt;
  const std::uint64_t table = *hash + 16 + std::uint64_t{*words} * 8;
  const std::uint64_t chains = table + std::uint64_t{*buckets} * 4;
  std::uint64_t last = 0;
  for (std::uint64_t at = table; at < chains; at += 4) {
    const auto bucket = read<std::uint32_t>(at);
    if (!bucket) return std::nullopt;
    last = std::max<std::uint64_t>(last, *bucket);
  }
  if (last < *first) return std::nullopt;
  for (; last < mostSymbols(); ++last) {
    const auto chain = read<std::uint32_t>(chains + (last - *first) * 4);
    if (!chain) return std::nullopt;
    if ((*chain & 1) != 0) return last + 1;
  }
  return std::nullopt;
}

std::optional<GElf_Sym> ElfMemory::readSymbol(std::uint64_t index) const {
  const std::optional<std::uint64_t> table = dynamic(DT_SYMTAB);
  if (!table) return std::nullopt;
  const std::uint64_t at = *table + index * sizeof(Elf64_Sym);
  const auto name = read<std::uint32_t>(at);
  const auto section = read<std::uint16_t>(at + 6);
  const auto value = read<std::uint64_t>(at + 8);
  const auto size = read<std::uint64_t>(at + 16);
  if (!name || !section || !value || !size) return std::nullopt;
  return GElf_Sym{*name, 0, 0, *section, *value, *size};
}

std::optional<ElfMemory::Symbol> ElfMemory::findSymbol(std::string_view name) const {
  const std::optional<std::uint64_t> names = dynamic(DT_STRTAB);
  const std::optional<std::uint64_t> count = symbolCount();
  if (!names || !count) return std::nullopt;
  // A table that claims more than the file could hold ends where reading ends.
  for (std::uint64_t i = 1; i < std::min(*count, mostSymbols()); ++i) {
    const std::optional<GElf_Sym> symbol = readSymbol(i);
    if (!symbol) return std::nullopt;
    if (symbol->st_shndx == SHN_UNDEF) continue;
    const std::string_view text = bytesAt(*names + symbol->st_name);
    if (!text.starts_with(name) || text.size() <= name.size() || text[name.size()] != '\0')
      continue;
    if (symbol->st_value == 0) return std::nullopt;
    return Symbol{symbol->st_value, symbol->st_size, symbol->st_shndx == SHN_ABS};
  }
  return std::nullopt;
}

}  // namespace bootforge::analyze
