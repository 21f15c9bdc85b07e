#include "analyze/image/native_object.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "tests/unit/analyze_image/object_writer.h"
#include "tests/unit/native/shared_objects.h"

namespace bootforge::analyze {
namespace {

using test::kElsewhere;
using test::ObjectWriter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(NativeObjectTest, AnObjectThatIsCutAtAnyByteIsUnloadable) {
  const std::string whole = test::sharedObject("full");
  const std::size_t needed = test::endOfSegments(whole);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    const NativeObject object = readNativeObject(std::string_view(whole).substr(0, size));
    ASSERT_EQ(object.isGood(), size >= needed);
    ASSERT_EQ(object.unloadable.empty(), size >= needed);
    if (!object.isGood()) continue;
    EXPECT_THAT(object.record.provides, ElementsAre("service-up", "extra-up"));
    EXPECT_EQ(object.record.pluginVersion, "2.5");
  }
}

TEST(NativeObjectTest, APointerThatNoRelocationTouchesLeadsNowhere) {
  const NativeObject object = readNativeObject(test::sharedObject("wild_version"));
  EXPECT_THAT(object.unloadable, IsEmpty());
  EXPECT_THAT(object.recordFaults, ElementsAre(native::kWildPointer));
}

struct Machine {
  const char* name;
  std::uint16_t number;
  bool isBigEndian;
  std::uint32_t symbolRelocation;
  std::uint32_t globalRelocation;
};

class MachineTest : public ::testing::TestWithParam<Machine> {};

INSTANTIATE_TEST_SUITE_P(
    EachMachine, MachineTest,
    ::testing::Values(Machine{"x86", EM_X86_64, false, R_X86_64_64, R_X86_64_GLOB_DAT},
                      Machine{"arm", EM_AARCH64, false, R_AARCH64_ABS64, R_AARCH64_GLOB_DAT},
                      Machine{"riscv", EM_RISCV, false, R_RISCV_64, R_RISCV_64},
                      Machine{"powerpc", EM_PPC64, false, R_PPC64_ADDR64, R_PPC64_ADDR64},
                      Machine{"powerpc_big", EM_PPC64, true, R_PPC64_ADDR64, R_PPC64_ADDR64}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(MachineTest, RecordsAreRead) {
  ObjectWriter writer(GetParam().number, GetParam().isBigEndian);
  writer.addRecords();
  const NativeObject object = readNativeObject(writer.finish());
  EXPECT_TRUE(object.isGood()) << object.unloadable;
  EXPECT_EQ(object.machine, GetParam().number);
  EXPECT_THAT(object.record.provides, ElementsAre("up"));
  EXPECT_THAT(object.record.requires_, IsEmpty());
  EXPECT_FALSE(object.record.hasApplyHostProfile);
}

TEST_P(MachineTest, WithoutARelocationAPointerLeadsNowhere) {
  ObjectWriter writer(GetParam().number, GetParam().isBigEndian);
  const std::uint64_t metadata = writer.putRecord(1);
  writer.putLong(0);
  writer.putLong(metadata);
  writer.addRecordSymbols(metadata, metadata);
  const NativeObject object = readNativeObject(writer.finish());
  EXPECT_THAT(object.recordFaults, ElementsAre(native::kWildPointer));
  EXPECT_THAT(object.record.provides, IsEmpty());
}

TEST_P(MachineTest, ARelocationMayNameASymbol) {
  for (const std::uint32_t type : {GetParam().symbolRelocation, GetParam().globalRelocation}) {
    ObjectWriter writer(GetParam().number, GetParam().isBigEndian);
    const std::uint64_t names = writer.putLong(0);
    writer.putLong(0);
    const std::uint64_t metadata = writer.putRecord(1);
    writer.putLong(0);
    const std::uint64_t provides = writer.putLong(0);
    writer.addSymbol("text", writer.putText("a milestone"), 12);
    writer.addSymbol("names", names - 8, 16);
    writer.addSymbol("elsewhere", 0, 0, SHN_UNDEF);
    writer.addRecordSymbols(metadata, metadata + 8);
    writer.addRelocation(names, ELF64_R_INFO(1, type), 2);
    writer.addRelocation(provides, ELF64_R_INFO(2, type), 8);
    const NativeObject object = readNativeObject(ObjectWriter(writer).finish());
    EXPECT_TRUE(object.isGood()) << object.unloadable;
    EXPECT_THAT(object.record.provides, ElementsAre("milestone"));
    EXPECT_TRUE(object.record.hasApplyHostProfile);
    // What another object fills cannot be known, and one that does not move is not there.
    writer.addRelocation(names, ELF64_R_INFO(3, type), 0);
    EXPECT_TRUE(readNativeObject(ObjectWriter(writer).finish()).isGood());
    EXPECT_THAT(readNativeObject(ObjectWriter(writer).finish()).record.provides, IsEmpty());
    writer.addSymbol("absolute", metadata, 8, SHN_ABS);
    writer.addRelocation(names, ELF64_R_INFO(6, type), 0);
    EXPECT_THAT(readNativeObject(writer.finish()).recordFaults, ElementsAre(native::kWildPointer));
  }
}

TEST(NativeObjectTest, OfAMachineWhoseRelocationsAreNotKnownPointersAreWhatStandsThere) {
  ObjectWriter writer(EM_S390, true);
  const std::uint64_t name = writer.putText("up");
  writer.align();
  const std::uint64_t names = writer.putLong(name);
  writer.putLong(0);
  const std::uint64_t metadata = writer.putRecord(1);
  writer.putLong(0);
  writer.putLong(names);
  writer.addRecordSymbols(metadata, metadata);
  const NativeObject object = readNativeObject(writer.finish());
  EXPECT_TRUE(object.isGood()) << object.unloadable;
  EXPECT_THAT(object.record.provides, ElementsAre("up"));
}

TEST(NativeObjectTest, ATextMayEndWhereTheZerosOfASegmentBegin) {
  ObjectWriter writer(EM_S390);
  const std::uint64_t metadata = writer.putRecord(1);
  writer.putLong(0);
  writer.putLong(metadata + 24);
  writer.putLong(kElsewhere);
  writer.putLong(kElsewhere + 1);
  writer.putLong(kElsewhere + 2);
  writer.putLong(kElsewhere + 3);
  writer.putLong(0);
  writer.addSegment(PT_LOAD, kElsewhere, writer.putText("up"), 2, 4);
  writer.addRecordSymbols(metadata, metadata);
  const NativeObject object = readNativeObject(ObjectWriter(writer).finish());
  EXPECT_TRUE(object.isGood()) << object.unloadable;
  EXPECT_THAT(object.record.provides, ElementsAre("up", "p", "", ""));
  for (const auto& [where, sizeInMemory] : {std::pair{kElsewhere + 4, 4}, {kElsewhere, 2}}) {
    ObjectWriter other(EM_S390);
    const std::uint64_t record = other.putRecord(1);
    other.putLong(0);
    other.putLong(record + 24);
    other.putLong(where);
    other.putLong(0);
    other.addSegment(PT_LOAD, kElsewhere, other.putText("up"), 2,
                     static_cast<std::uint64_t>(sizeInMemory));
    other.addRecordSymbols(record, record);
    EXPECT_THAT(readNativeObject(other.finish()).recordFaults, ElementsAre(native::kWildPointer));
  }
}

TEST(NativeObjectTest, PackedRelocationsReachEachOf63PointersBehindAnAddress) {
  for (std::uint64_t distance = 0; distance <= 64; ++distance) {
    ObjectWriter writer;
    const std::uint64_t first = writer.putZeros(distance * 8);
    const std::uint64_t metadata = writer.putRecord(1);
    writer.putLong(0);
    const std::uint64_t provides = writer.putLong(metadata + 8);
    // The record's other pointer is null: an array without names. Bitmaps follow an address.
    ASSERT_EQ(provides, first + distance * 8 + 16);
    const std::uint64_t place = distance + 2;  // counted in pointers from the first
    const std::uint64_t table = writer.putLong(first);
    const auto bitmap = [place](std::uint64_t begin) {
      const bool isHere = place >= begin && place < begin + 63;
      return 1 | (isHere ? std::uint64_t{2} << (place - begin) : 0);
    };
    writer.putLong(bitmap(1));
    writer.putLong(bitmap(64));
    writer.addDynamic(36, table);  // DT_RELR, DT_RELRSZ
    writer.addDynamic(35, 24);
    writer.addRecordSymbols(metadata, metadata);
    EXPECT_TRUE(readNativeObject(writer.finish()).isGood()) << distance;
  }
}

/// A plugin's object in which one kind of entry of the dynamic section means nothing.
std::string objectWithout(std::int64_t tag) {
  ObjectWriter writer;
  writer.addRecords();
  std::string file = writer.finish();
  for (std::size_t at = 0; at + sizeof(Elf64_Dyn) <= file.size(); at += 8) {
    Elf64_Dyn entry;
    std::memcpy(&entry, &file[at], sizeof entry);
    if (entry.d_tag != tag || entry.d_un.d_val == 0) continue;
    const std::int64_t other = DT_DEBUG;
    std::memcpy(&file[at], &other, sizeof other);
  }
  return file;
}

TEST(NativeObjectTest, WithoutOneOfItsTablesAnObjectHasNoSymbols) {
  for (const std::int64_t tag : {DT_STRTAB, DT_SYMTAB, DT_HASH}) {
    const NativeObject object = readNativeObject(objectWithout(tag));
    EXPECT_THAT(object.unloadable, IsEmpty()) << tag;
    EXPECT_THAT(object.missingSymbols, SizeIs(2)) << tag;
  }
}

TEST(NativeObjectTest, WithoutPlaceOrSizeOfItsRelocationsAnObjectHasNone) {
  EXPECT_THAT(readNativeObject(objectWithout(DT_DEBUG)).record.provides, ElementsAre("up"));
  for (const std::int64_t tag : {DT_RELA, DT_RELASZ}) {
    const NativeObject object = readNativeObject(objectWithout(tag));
    EXPECT_TRUE(object.isGood()) << tag;
    EXPECT_THAT(object.record.provides, IsEmpty()) << tag;
  }
}

TEST(NativeObjectTest, WithoutHeadersOfSegmentsAnObjectHasNoSegments) {
  std::string file = objectWithout(DT_DEBUG);
  file[offsetof(Elf64_Ehdr, e_phnum)] = 0;
  EXPECT_EQ(readNativeObject(file).unloadable, "object file has no loadable segments");
}

TEST(NativeObjectTest, TheTableOfGnuHashesTellsTheNumberOfSymbols) {
  // The last chain ends with a mark; the symbols that a plugin needs are the last ones.
  for (const std::uint32_t chains : {3U, 2U, 1U, 0U}) {
    ObjectWriter writer;
    writer.addSymbol("another", 64, 8);
    writer.addRecords();
    writer.align();
    const std::uint64_t table = writer.putWord(2);  // buckets
    writer.putWord(1);                              // the first symbol that is hashed
    writer.putWord(1);                              // words of the filter
    writer.putWord(6);
    writer.putLong(~std::uint64_t{0});
    writer.putWord(0);  // where each bucket's chain begins
    writer.putWord(chains == 0 ? 0 : 1);
    for (std::uint32_t i = 1; i < chains; ++i) writer.putWord(0x100);
    writer.putWord(0x101);
    writer.useHashes(DT_GNU_HASH, table);
    const NativeObject object = readNativeObject(writer.finish());
    EXPECT_THAT(object.unloadable, IsEmpty());
    EXPECT_THAT(object.missingSymbols, SizeIs(std::min(3 - chains, 2U)));
  }
}
}  // namespace
}  // namespace bootforge::analyze
