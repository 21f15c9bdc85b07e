// Reading the record of run-once plugins.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <set>
#include <string>

#include "catalogue/run_once_record.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/support/own_process.h"
#include "tests/support/sanitizer.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/catalogue/gzip.h"
#include "tests/unit/catalogue/record_path.h"
#include "util/regular_file.h"

namespace bootforge {
namespace {

using test::gzipped;
using test::kRecordPath;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

using Keys = std::set<std::string>;

class RunOnceLoad : public testing::Test {
 protected:
  RunOnceLoad() {
    doubles::reset();
    doubles::resetFaults();
  }
  ~RunOnceLoad() override {
    EXPECT_THAT(doubles::records(), IsEmpty()) << "a record that cannot be read is no news";
    doubles::resetFaults();
  }

  static Keys load() {
    Keys keys;
    loadRunOnceRecord(keys);
    return keys;
  }

  static Keys loadFrom(const std::string& bytes) {
    writeFile(kRecordPath, bytes);
    return load();
  }

  static Keys loadContent(const std::string& content) { return loadFrom(gzipped(content)); }
};

TEST_F(RunOnceLoad, TheKeysOfTheRecordAreRead) {
  EXPECT_THAT(loadContent("bootforge.run-once=net1.2,ssh4,\n"), ElementsAre("net1.2", "ssh4"));
}

TEST_F(RunOnceLoad, TheKeysAreAddedToThoseThatAreThere) {
  writeFile(kRecordPath, gzipped("bootforge.run-once=net1.2,ssh4,\n"));
  Keys keys = {"a", "ssh4", "z"};
  loadRunOnceRecord(keys);
  EXPECT_THAT(keys, ElementsAre("a", "net1.2", "ssh4", "z"));
}

TEST_F(RunOnceLoad, BlanksAroundItemsAndEmptyItemsAreDropped) {
  EXPECT_THAT(loadContent("bootforge.run-once= a ,,b,\n"), ElementsAre("a", "b"));
}

TEST_F(RunOnceLoad, AllWhiteSpaceIsTrimmedAndInnerBlanksAreKept) {
  EXPECT_THAT(loadContent("bootforge.run-once=\t\v\f\r\n a  b \n\r\f\v\t, \t\n,c\n,\n\n"),
              ElementsAre("a  b", "c"));
}

TEST_F(RunOnceLoad, ALastItemWithoutACommaIsRead) {
  EXPECT_THAT(loadContent("bootforge.run-once=a,b\n"), ElementsAre("a", "b"));
  EXPECT_THAT(loadContent("bootforge.run-once=a,b"), ElementsAre("a", "b"));
}

TEST_F(RunOnceLoad, ARecordWithoutKeysAddsNone) {
  EXPECT_THAT(loadContent("bootforge.run-once=\n"), IsEmpty());
  EXPECT_THAT(loadContent("bootforge.run-once="), IsEmpty());
  EXPECT_THAT(loadContent("bootforge.run-once=,,,\n"), IsEmpty());
}

TEST_F(RunOnceLoad, AnyBytesCanBeAKey) {
  const std::string key("\0\x80\xff=\"\\", 6);
  EXPECT_THAT(loadContent("bootforge.run-once=" + key + ",\n"), ElementsAre(key));
}

TEST_F(RunOnceLoad, AnotherPrefixLoadsNothing) {
  for (const char* content :
       {"bootforge.run_once=a,b,\n", "Bootforge.run-once=a,b,\n", " bootforge.run-once=a,b,\n",
        "\nbootforge.run-once=a,b,\n", "bootforge.run-once:a,b,\n", "bootforge.run-once", "a,b,\n",
        "bootforge.run-onc=a,b,\n", "\n", ""}) {
    EXPECT_THAT(loadContent(content), IsEmpty()) << content;
  }
}

TEST_F(RunOnceLoad, AMissingRecordLoadsNothing) {
  EXPECT_THAT(load(), IsEmpty());
  std::filesystem::remove_all("/bootbank");
  EXPECT_THAT(load(), IsEmpty());
}

TEST_F(RunOnceLoad, AnEmptyRecordLoadsNothing) { EXPECT_THAT(loadFrom(""), IsEmpty()); }

TEST_F(RunOnceLoad, AFileThatIsNoGzipLoadsNothing) {
  EXPECT_THAT(loadFrom("bootforge.run-once=a,b,\n"), IsEmpty());
  EXPECT_THAT(loadFrom(test::deflated("bootforge.run-once=a,b,\n", 15)), IsEmpty());
  EXPECT_THAT(loadFrom(test::deflated("bootforge.run-once=a,b,\n", -15)), IsEmpty());
}

TEST_F(RunOnceLoad, AFolderInItsPlaceLoadsNothing) {
  std::filesystem::create_directories(kRecordPath);
  EXPECT_THAT(load(), IsEmpty());
}

TEST_F(RunOnceLoad, AFifoInItsPlaceLoadsNothingAndIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(kRecordPath, 0600), 0);
  EXPECT_THAT(load(), IsEmpty());
}

TEST_F(RunOnceLoad, ADanglingLinkInItsPlaceLoadsNothing) {
  std::filesystem::create_symlink("/nowhere", kRecordPath);
  EXPECT_THAT(load(), IsEmpty());
}

TEST_F(RunOnceLoad, ADeviceInItsPlaceLoadsNothing) {
  std::filesystem::create_symlink("/dev/zero", kRecordPath);
  EXPECT_THAT(load(), IsEmpty());
}

TEST_F(RunOnceLoad, ARecordThatMayNotBeReadLoadsNothing) {
  writeFile(kRecordPath, gzipped("bootforge.run-once=a,b,\n"));
  doubles::failCall("open", {.error = EACCES});
  EXPECT_THAT(load(), IsEmpty());
}

TEST_F(RunOnceLoad, ALinkToARecordIsAsGoodAsTheRecord) {
  writeFile("/elsewhere", gzipped("bootforge.run-once=a,b,\n"));
  std::filesystem::create_symlink("/elsewhere", kRecordPath);
  EXPECT_THAT(load(), ElementsAre("a", "b"));
}

TEST_F(RunOnceLoad, ALargeRecordIsReadWhole) {
  std::mt19937 random(1);
  Keys expected;
  std::string content = "bootforge.run-once=";
  while (expected.size() < 50000) {
    std::string key = "plugin" + std::to_string(expected.size()) + "-" + std::to_string(random());
    content += key + ',';
    expected.insert(std::move(key));
  }
  EXPECT_EQ(loadContent(content + '\n'), expected);
}

TEST_F(RunOnceLoad, AKeyOfMegabytesIsReadWhole) {
  const std::string key(5'000'000, 'x');
  EXPECT_EQ(loadContent("bootforge.run-once=a," + key + ",b,\n"), (Keys{"a", "b", key}));
}

TEST_F(RunOnceLoad, ARecordThatUnpacksToMoreThanTheLimitLoadsNothing) {
  const std::string content = "bootforge.run-once=a,";
  const std::string rest(kReadLimit - content.size(), 'x');
  EXPECT_EQ(loadContent(content + rest).size(), 2U);
  EXPECT_THAT(loadContent(content + rest + 'x'), IsEmpty());
}

// Some 100 kB on the disk, 100 MB in memory: most of it must never be unpacked.
TEST_F(RunOnceLoad, ARecordThatWouldFillTheMemoryCostsLittle) {
  const std::string bomb = gzipped("bootforge.run-once=a," + std::string(100'000'000, 'x'));
  ASSERT_LT(bomb.size(), 200'000U);
  writeFile(kRecordPath, bomb);
  test::inChild([] {
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    EXPECT_THAT(load(), IsEmpty());
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    // The child starts with the peak of the test that forked it, which has made the bomb. The
    // thread sanitizer keeps four bytes and more about each byte.
    constexpr long kMost = (test::kThreadSanitizer ? 8 : 1) * 96L * 1024 * 1024;
    EXPECT_LE(after.ru_minflt - before.ru_minflt, kMost / ::sysconf(_SC_PAGESIZE));
  });
}

TEST_F(RunOnceLoad, ALargeFileInItsPlaceIsNotRead) {
  writeFile(kRecordPath, gzipped("bootforge.run-once=a,"));
  ASSERT_EQ(::truncate(kRecordPath, 500'000'000), 0);
  EXPECT_THAT(load(), IsEmpty());
  EXPECT_EQ(doubles::callCount("read"), 0);
}

TEST_F(RunOnceLoad, NoDescriptorIsLeftOpen) {
  writeFile(kRecordPath, gzipped("bootforge.run-once=a,\n"));
  const int before = test::countOpenDescriptors();
  load();
  writeFile(kRecordPath, "damaged");
  load();
  EXPECT_EQ(test::countOpenDescriptors(), before);
}

}  // namespace
}  // namespace bootforge
