// Records that were damaged: a record gives all of its keys or none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <set>
#include <string>

#include "catalogue/run_once_record.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/catalogue/gzip.h"
#include "tests/unit/catalogue/record_path.h"

namespace bootforge {
namespace {

using test::gzipped;
using test::kRecordPath;
using test::writeFile;
using testing::IsEmpty;

using Keys = std::set<std::string>;

Keys loadFrom(const std::string& bytes) {
  writeFile(kRecordPath, bytes);
  Keys keys;
  loadRunOnceRecord(keys);
  return keys;
}

/// A record as the program writes it.
std::string savedRecord(const Keys& keys) {
  saveRunOnceRecord(keys);
  return test::readFile(kRecordPath);
}

const Keys kFew = {"net1.2", "ssh4", "storage-upgrade1.0.3"};

/// Keys that do not compress, so that the record is longer than the reader's buffer.
Keys manyKeys() {
  std::mt19937 random(7);
  Keys keys;
  while (keys.size() < 3000) keys.insert(std::to_string(random()));
  return keys;
}

TEST(RunOnceDamage, ARecordCutShortAnywhereLoadsNothing) {
  const std::string record = savedRecord(kFew);
  ASSERT_EQ(loadFrom(record), kFew);
  for (std::size_t length = 0; length < record.size(); ++length) {
    EXPECT_THAT(loadFrom(record.substr(0, length)), IsEmpty()) << length << " bytes";
  }
}

TEST(RunOnceDamage, ALongRecordCutShortLoadsNothing) {
  const Keys keys = manyKeys();
  const std::string record = savedRecord(keys);
  ASSERT_GT(record.size(), 3U * 4096);
  ASSERT_EQ(loadFrom(record), keys);
  for (std::size_t length = 1; length < record.size(); length += 211) {
    EXPECT_THAT(loadFrom(record.substr(0, length)), IsEmpty()) << length << " bytes";
  }
  for (const std::size_t length : {4095U, 4096U, 4097U, 8191U, 8192U, 8193U}) {
    EXPECT_THAT(loadFrom(record.substr(0, length)), IsEmpty()) << length << " bytes";
  }
  for (std::size_t missing = 1; missing < 20; ++missing) {
    EXPECT_THAT(loadFrom(record.substr(0, record.size() - missing)), IsEmpty()) << missing;
  }
}

/// All of the keys or none of them. Some bytes of a header mean nothing, such as a time stamp.
void expectAllOrNothing(const std::string& record, const Keys& keys, std::size_t position) {
  const Keys loaded = loadFrom(record);
  EXPECT_TRUE(loaded.empty() || loaded == keys)
      << "byte " << position << ": " << testing::PrintToString(loaded);
}

TEST(RunOnceDamage, AnyBitTurnedGivesAllOrNothing) {
  const std::string record = savedRecord(kFew);
  for (std::size_t i = 0; i < record.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = record;
      damaged[i] = static_cast<char>(damaged[i] ^ (1 << bit));
      expectAllOrNothing(damaged, kFew, i);
    }
  }
}

TEST(RunOnceDamage, AnyByteReplacedGivesAllOrNothing) {
  const std::string record = savedRecord(kFew);
  for (std::size_t i = 0; i < record.size(); ++i) {
    for (const char byte : {'\0', '\xff', 'a'}) {
      std::string damaged = record;
      damaged[i] = byte;
      expectAllOrNothing(damaged, kFew, i);
    }
  }
}

TEST(RunOnceDamage, AnyByteOfTheCompressedKeysOrTheChecksumTurnedLoadsNothing) {
  constexpr std::size_t kHeader = 10;
  constexpr std::size_t kLength = 4;  // the last word, which the checksum makes superfluous
  const std::string record = savedRecord(kFew);
  for (std::size_t i = kHeader; i < record.size() - kLength; ++i) {
    std::string damaged = record;
    damaged[i] = static_cast<char>(~damaged[i]);
    EXPECT_THAT(loadFrom(damaged), IsEmpty()) << "byte " << i;
  }
}

TEST(RunOnceDamage, ALongRecordWithOneByteTurnedLoadsNothing) {
  const std::string record = savedRecord(manyKeys());
  for (std::size_t i = 10; i < record.size() - 4; i += 211) {
    std::string damaged = record;
    damaged[i] = static_cast<char>(~damaged[i]);
    EXPECT_THAT(loadFrom(damaged), IsEmpty()) << "byte " << i;
  }
}

TEST(RunOnceDamage, ABytePutInOrTakenOutGivesAllOrNothing) {
  const std::string record = savedRecord(kFew);
  for (std::size_t i = 0; i < record.size(); ++i) {
    std::string longer = record;
    longer.insert(i, 1, '\x55');
    expectAllOrNothing(longer, kFew, i);
    std::string shorter = record;
    shorter.erase(i, 1);
    expectAllOrNothing(shorter, kFew, i);
  }
}

TEST(RunOnceDamage, WhatFollowsTheEndOfARecordMakesItADamagedOne) {
  const std::string record = savedRecord(kFew);
  EXPECT_THAT(loadFrom(record + "x"), IsEmpty());
  EXPECT_THAT(loadFrom(record + std::string(512, '\0')), IsEmpty());
  EXPECT_THAT(loadFrom(record + "bootforge.run-once=a,\n"), IsEmpty());
  EXPECT_THAT(loadFrom(record + record.substr(0, record.size() - 1)), IsEmpty());
}

TEST(RunOnceDamage, ADamagedRecordLeavesTheKeysThatAreThere) {
  std::string record = savedRecord(kFew);
  record[record.size() / 2] = static_cast<char>(~record[record.size() / 2]);
  writeFile(kRecordPath, record);
  Keys keys = {"mine"};
  loadRunOnceRecord(keys);
  EXPECT_EQ(keys, Keys{"mine"});
}

}  // namespace
}  // namespace bootforge
