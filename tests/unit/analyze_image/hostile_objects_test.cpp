// Shared objects of the largest size that is read, made to take time or memory.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "analyze/image/native_object.h"
#include "tests/unit/analyze_image/object_writer.h"

namespace bootforge::analyze {
namespace {

using test::kElsewhere;
using test::ObjectWriter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::size_t kLargestFile = 16U << 20;
constexpr std::int64_t kPackedRelocations = 36;
constexpr std::int64_t kPackedRelocationsSize = 35;

/// Reads an object within a limit that only a product of its numbers exceeds, on any machine.
NativeObject read(const std::string& file) {
  EXPECT_LE(file.size(), kLargestFile);
  const std::clock_t begin = std::clock();
  NativeObject object = readNativeObject(file);
  EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 20) << "seconds of the processor";
  return object;
}

TEST(HostileObjectsTest, SegmentsAreNotSearchedForEachRelocation) {
  ObjectWriter writer;
  writer.addRecords();
  for (std::uint64_t i = 0; i < 60'000; ++i) {
    writer.addSegment(PT_LOAD, kElsewhere + i * 4096, 0, 4096, 4096);
  }
  for (std::uint64_t i = 0; i < 500'000; ++i) writer.addRelocation(64, writer.relative(), 0);
  const NativeObject object = read(writer.finish());
  EXPECT_TRUE(object.isGood()) << object.unloadable;
  EXPECT_THAT(object.record.provides, ElementsAre("up"));
}

TEST(HostileObjectsTest, TheDynamicSectionIsNotSearchedForEachSymbol) {
  ObjectWriter writer;
  writer.addRecords();
  for (int i = 0; i < 400'000; ++i) writer.addDynamic(DT_DEBUG, 0);
  for (int i = 0; i < 300'000; ++i) writer.addRelocation(64, ELF64_R_INFO(1, R_X86_64_64), 0);
  EXPECT_TRUE(read(writer.finish()).isGood());
}

TEST(HostileObjectsTest, OfManyDynamicSectionsTheLastOneCounts) {
  ObjectWriter writer;
  writer.addRecords();
  const std::uint64_t section = writer.putZeros(0);
  for (std::uint64_t i = 0; i < 400'000; ++i) {
    writer.putLong(DT_NEEDED);
    writer.putLong(i);
  }
  for (int i = 0; i < 60'000; ++i) {
    writer.addSegment(PT_DYNAMIC, section, section, 400'000 * sizeof(Elf64_Dyn), 0);
  }
  const NativeObject object = read(writer.finish());
  EXPECT_TRUE(object.isGood()) << object.unloadable;
  EXPECT_THAT(object.libraries.names, IsEmpty());
}

TEST(HostileObjectsTest, PackedRelocationsOfMorePointersThanTheFileHasRoomForAreRejected) {
  ObjectWriter writer;
  writer.addRecords();
  writer.putZeros(8 - writer.putZeros(0) % 8);
  const std::uint64_t table = writer.putLong(64);
  for (int i = 0; i < 2'000'000; ++i) writer.putLong(~std::uint64_t{0});
  writer.addDynamic(kPackedRelocations, table);
  writer.addDynamic(kPackedRelocationsSize, 2'000'001 * 8);
  EXPECT_EQ(read(writer.finish(kElsewhere)).unloadable, "too many packed relocations");
}

TEST(HostileObjectsTest, OneTextThatIsNeededOverAndOverIsRejected) {
  ObjectWriter writer;
  writer.addRecords();
  writer.addDynamicName(DT_NEEDED, std::string(8U << 20, 'a'));
  const std::string once = ObjectWriter(writer).finish();
  EXPECT_EQ(read(once).unloadable, "the names of its libraries and folders are too long");
  ObjectWriter often;
  often.addRecords();
  for (int i = 0; i < 500'000; ++i) often.addDynamic(DT_NEEDED, 1);
  EXPECT_EQ(read(often.finish()).unloadable, "too many libraries or folders");
}

TEST(HostileObjectsTest, ARunPathOfEmptyFoldersIsRejected) {
  ObjectWriter writer;
  writer.addRecords();
  writer.addDynamicName(DT_RUNPATH, std::string(1'000, ':'));
  EXPECT_EQ(read(writer.finish()).unloadable, "too many libraries or folders");
}

TEST(HostileObjectsTest, OneTextThatIsNamedOverAndOverEndsTheRecord) {
  // Of a machine whose relocations are not known, so that pointers are what stands there.
  ObjectWriter writer(EM_S390, true);
  const std::uint64_t empty = writer.putZeros(8);
  const std::uint64_t names = writer.putZeros(0);
  for (int i = 0; i < 600'000; ++i) writer.putLong(empty);
  writer.putLong(0);
  const std::uint64_t metadata = writer.putLong(std::uint64_t{3} << 32);
  writer.putLong(names);
  writer.putLong(names);
  writer.putZeros(32);
  writer.addSymbol(native::kMetadata, metadata, 56);
  writer.addSymbol(native::kOperations, metadata + 24, 16);
  const NativeObject object = read(writer.finish());
  EXPECT_THAT(object.recordFaults, ElementsAre(native::kWildPointer));
  EXPECT_LT(object.record.provides.size() + object.record.requires_.size(), 600'000);
}

TEST(HostileObjectsTest, AThousandLibrariesAndFoldersAreTaken) {
  ObjectWriter writer;
  writer.addRecords();
  for (int i = 0; i < 1'000; ++i) writer.addDynamicName(DT_NEEDED, "lib" + std::to_string(i));
  writer.addDynamicName(DT_RUNPATH, std::string(999, ':'));
  const NativeObject object = read(writer.finish());
  EXPECT_THAT(object.unloadable, IsEmpty());
  EXPECT_THAT(object.libraries.names, SizeIs(1'000));
  EXPECT_THAT(object.libraries.folders, SizeIs(1'000));
}

}  // namespace
}  // namespace bootforge::analyze
