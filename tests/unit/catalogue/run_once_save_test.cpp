// Writing the record of run-once plugins.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "catalogue/run_once_record.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/catalogue/gzip.h"
#include "tests/unit/catalogue/record_path.h"

namespace bootforge {
namespace {

using doubles::failCall;
using test::FileSizeLimit;
using test::gunzipped;
using test::kRecordPath;
using test::readFile;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

using Keys = std::set<std::string>;

class RunOnceSave : public testing::Test {
 protected:
  RunOnceSave() {
    doubles::reset();
    doubles::resetFaults();
  }
  ~RunOnceSave() override {
    EXPECT_THAT(doubles::records(), IsEmpty()) << "failures are the caller's to tell";
    doubles::resetFaults();
  }

  static std::vector<std::string> bootBank() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/bootbank")) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  static mode_t modeOfRecord() {
    struct stat status {};
    EXPECT_EQ(::stat(kRecordPath, &status), 0);
    return status.st_mode & 07777;
  }

  /// The text of the exception that saving throws; a test failure when it throws none.
  static std::string failureOfSaving(const Keys& keys) {
    try {
      saveRunOnceRecord(keys);
    } catch (const std::exception& error) {
      return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return "";
  }

  /// Expects the old record, readable as ever, and nothing beside it.
  static void expectOldRecord() {
    EXPECT_EQ(readFile(kRecordPath), "the old record");
    EXPECT_THAT(bootBank(), ElementsAre("bootfrge.gz"));
  }

  /// Keys that do not compress: a record of some 100 kilobytes.
  static Keys manyKeys() {
    std::mt19937 random(3);
    Keys keys;
    while (keys.size() < 20000) keys.insert(std::to_string(random()));
    return keys;
  }
};

TEST_F(RunOnceSave, TheRecordIsOneLineOfGzip) {
  saveRunOnceRecord({"net1.2", "ssh4"});
  EXPECT_EQ(gunzipped(readFile(kRecordPath)), "bootforge.run-once=net1.2,ssh4,\n");
  EXPECT_THAT(bootBank(), ElementsAre("bootfrge.gz"));
}

TEST_F(RunOnceSave, KeysAreInAscendingOrder) {
  saveRunOnceRecord({"b", "a", "B", "a1", "a.1", "10", "9"});
  EXPECT_EQ(gunzipped(readFile(kRecordPath)), "bootforge.run-once=10,9,B,a,a.1,a1,b,\n");
}

TEST_F(RunOnceSave, WithoutKeysThePrefixStands) {
  saveRunOnceRecord({});
  EXPECT_EQ(gunzipped(readFile(kRecordPath)), "bootforge.run-once=\n");
}

TEST_F(RunOnceSave, TheStreamIsDeflatedWithZlibsDefaults) {
  const Keys keys = manyKeys();
  std::string line = "bootforge.run-once=";
  for (const std::string& key : keys) line += key + ',';
  line += '\n';
  saveRunOnceRecord(keys);
  const std::string record = readFile(kRecordPath);
  EXPECT_EQ(record.substr(0, 4), std::string("\x1f\x8b\x08\0", 4)) << "gzip, deflate, no flags";
  constexpr std::size_t kHeader = 10;
  constexpr std::size_t kTrailer = 8;
  ASSERT_GT(record.size(), kHeader + kTrailer);
  EXPECT_TRUE(record.substr(kHeader, record.size() - kHeader - kTrailer) ==
              test::deflated(line, -15));
  EXPECT_TRUE(gunzipped(record) == line);
}

TEST_F(RunOnceSave, WhatIsSavedIsLoadedAgain) {
  for (const Keys& keys : {Keys{}, Keys{"a"}, Keys{"net1.2", "ssh4"}, manyKeys()}) {
    saveRunOnceRecord(keys);
    Keys loaded;
    loadRunOnceRecord(loaded);
    EXPECT_TRUE(loaded == keys) << keys.size() << " keys";
  }
}

TEST_F(RunOnceSave, ANewRecordBelongsToItsOwnerAlone) {
  saveRunOnceRecord({"a"});
  EXPECT_EQ(modeOfRecord(), 0600U);
}

TEST_F(RunOnceSave, AReplacedRecordKeepsItsPermissions) {
  writeFile(kRecordPath, "the old record", 0644);
  saveRunOnceRecord({"a"});
  EXPECT_EQ(modeOfRecord(), 0644U);
  EXPECT_EQ(gunzipped(readFile(kRecordPath)), "bootforge.run-once=a,\n");
}

TEST_F(RunOnceSave, AFullDiskLeavesTheOldRecord) {
  writeFile(kRecordPath, "the old record");
  {
    const FileSizeLimit limit(20);
    EXPECT_EQ(failureOfSaving({"net1.2", "ssh4"}),
              "unable to write '/bootbank/bootfrge.gz': File too large");
  }
  expectOldRecord();
}

TEST_F(RunOnceSave, ADiskThatTakesNothingLeavesTheOldRecord) {
  writeFile(kRecordPath, "the old record");
  {
    const FileSizeLimit limit(0);
    EXPECT_EQ(failureOfSaving({}), "unable to write '/bootbank/bootfrge.gz': File too large");
  }
  expectOldRecord();
}

TEST_F(RunOnceSave, ADiskThatFillsUpInTheMiddleOfALongRecordLeavesTheOldRecord) {
  writeFile(kRecordPath, "the old record");
  const Keys keys = manyKeys();
  ::alarm(60);  // a writer that tries for ever ends the test
  for (const rlim_t room : {1U, 4096U, 5000U, 8192U, 65536U}) {
    const FileSizeLimit limit(room);
    EXPECT_EQ(failureOfSaving(keys), "unable to write '/bootbank/bootfrge.gz': File too large")
        << room;
  }
  ::alarm(0);
  expectOldRecord();
}

TEST_F(RunOnceSave, AFullDiskWithoutAnOldRecordLeavesNothing) {
  {
    const FileSizeLimit limit(20);
    failureOfSaving({"net1.2", "ssh4"});
  }
  EXPECT_THAT(bootBank(), IsEmpty());
}

TEST_F(RunOnceSave, AReadOnlyBootBankLeavesTheOldRecord) {
  writeFile(kRecordPath, "the old record");
  failCall("mkstemp", {.error = EROFS});
  EXPECT_EQ(failureOfSaving({"a"}),
            "unable to create temporary file to write '/bootbank/bootfrge.gz': Read-only file "
            "system");
  expectOldRecord();
}

TEST_F(RunOnceSave, ASyncThatFailsLeavesTheOldRecord) {
  writeFile(kRecordPath, "the old record");
  failCall("fsync", {.error = EIO});
  EXPECT_EQ(failureOfSaving({"a"}),
            "unable to sync the new '/bootbank/bootfrge.gz': Input/output error");
  expectOldRecord();
}

TEST_F(RunOnceSave, ARecordThatMayNotLastIsAFailureThoughItIsThere) {
  failCall("fsync", {.error = EIO, .skip = 1});
  EXPECT_EQ(failureOfSaving({"a"}),
            "'/bootbank/bootfrge.gz' is replaced, but may not survive a power cut: Input/output "
            "error");
  EXPECT_EQ(gunzipped(readFile(kRecordPath)), "bootforge.run-once=a,\n");
}

TEST_F(RunOnceSave, AMissingBootBankIsAFailure) {
  std::filesystem::remove_all("/bootbank");
  EXPECT_EQ(failureOfSaving({"a"}),
            "unable to create temporary file to write '/bootbank/bootfrge.gz': No such file or "
            "directory");
}

TEST_F(RunOnceSave, ARenameThatFailsLeavesTheOldRecord) {
  writeFile(kRecordPath, "the old record");
  failCall("rename", {.error = EIO});
  EXPECT_THAT(failureOfSaving({"a"}),
              MatchesRegex("unable to rename '/bootbank/bootfrge\\.gz\\.[A-Za-z0-9]{6}' to "
                           "'/bootbank/bootfrge\\.gz': Input/output error"));
  expectOldRecord();
}

TEST_F(RunOnceSave, AFolderInItsPlaceStays) {
  std::filesystem::create_directories(kRecordPath);
  EXPECT_THAT(failureOfSaving({"a"}), MatchesRegex(".*: Is a directory"));
  EXPECT_TRUE(std::filesystem::is_directory(kRecordPath));
  EXPECT_THAT(bootBank(), ElementsAre("bootfrge.gz"));
}

TEST_F(RunOnceSave, PermissionsThatCannotBeRestoredAreTold) {
  writeFile(kRecordPath, "the old record", 0644);
  failCall("chmod", {.error = EPERM});
  EXPECT_EQ(failureOfSaving({"a"}),
            "failed to restore file permissions, file permissions may be incorrect: Operation not "
            "permitted");
  EXPECT_EQ(gunzipped(readFile(kRecordPath)), "bootforge.run-once=a,\n");
}

TEST_F(RunOnceSave, NoDescriptorIsLeftOpen) {
  const int before = test::countOpenDescriptors();
  saveRunOnceRecord({"a"});
  failCall("rename", {.error = EIO});
  failureOfSaving({"a"});
  EXPECT_EQ(test::countOpenDescriptors(), before);
}

}  // namespace
}  // namespace bootforge
