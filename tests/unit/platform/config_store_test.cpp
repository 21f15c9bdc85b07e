#include "platform/config_store.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "tests/support/scratch_root.h"

namespace bootforge::test {
namespace {

const std::string kStore = "/var/run/nimbus/configstore";
const std::string kMarker = kStore + "/autoconf";
const std::string kBootState = kStore + "/boot-state";

/// The text of what a call throws; empty when it goes well.
std::string failureOf(void (*call)()) {
  try {
    call();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

TEST(EndAutoConf, RemovesTheMarkerAndNothingElse) {
  writeFile(kMarker, "");
  writeFile(kStore + "/other", "");
  HypConfigStore::EndAutoConf();
  EXPECT_FALSE(exists(kMarker));
  EXPECT_TRUE(exists(kStore + "/other"));
}

TEST(EndAutoConf, SucceedsWithoutAMarkerOrAStore) {
  EXPECT_EQ(failureOf(HypConfigStore::EndAutoConf), "");
  writeFile(kStore, "a file in its place");
  EXPECT_EQ(failureOf(HypConfigStore::EndAutoConf), "");
  EXPECT_TRUE(exists(kStore));
}

TEST(EndAutoConf, RemovesALinkAndNotWhatItLeadsTo) {
  writeFile("/etc/precious", "");
  std::filesystem::create_directories(kStore);
  ASSERT_EQ(symlink("/etc/precious", kMarker.c_str()), 0);
  HypConfigStore::EndAutoConf();
  EXPECT_FALSE(exists(kMarker));
  EXPECT_TRUE(exists("/etc/precious"));
}

TEST(EndAutoConf, NamesThePathWhenTheMarkerCannotBeRemoved) {
  std::filesystem::create_directories(kMarker);
  EXPECT_EQ(failureOf(HypConfigStore::EndAutoConf),
            "cannot remove " + kMarker + ": Is a directory");
}

TEST(CleanupBootState, RemovesEverythingBelowTheDirectoryButNotTheDirectory) {
  writeFile(kBootState + "/file", "");
  writeFile(kBootState + "/.hidden", "");
  writeFile(kBootState + "/a/b/c/file", "", 0000);
  ASSERT_EQ(mkfifo((kBootState + "/fifo").c_str(), 0600), 0);
  HypConfigStore::CleanupBootState();
  EXPECT_TRUE(std::filesystem::is_empty(kBootState));
}

TEST(CleanupBootState, SucceedsWithoutADirectoryOrAStore) {
  EXPECT_EQ(failureOf(HypConfigStore::CleanupBootState), "");
  writeFile(kStore, "a file in its place");
  EXPECT_EQ(failureOf(HypConfigStore::CleanupBootState), "");
  EXPECT_TRUE(exists(kStore));
}

TEST(CleanupBootState, RemovesLinksAndNotWhatTheyLeadTo) {
  writeFile("/etc/precious/file", "");
  std::filesystem::create_directories(kBootState + "/below");
  ASSERT_EQ(symlink("/etc/precious", (kBootState + "/link").c_str()), 0);
  ASSERT_EQ(symlink("/etc/precious", (kBootState + "/below/link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (kBootState + "/dangling").c_str()), 0);
  HypConfigStore::CleanupBootState();
  EXPECT_TRUE(std::filesystem::is_empty(kBootState));
  EXPECT_TRUE(exists("/etc/precious/file"));
}

TEST(CleanupBootState, RefusesToFollowALinkInThePlaceOfTheDirectory) {
  writeFile("/etc/precious/file", "");
  std::filesystem::create_directories(kStore);
  ASSERT_EQ(symlink("/etc/precious", kBootState.c_str()), 0);
  EXPECT_EQ(failureOf(HypConfigStore::CleanupBootState),
            "cannot remove what is below " + kBootState + ": Not a directory");
  EXPECT_TRUE(exists("/etc/precious/file"));
}

TEST(CleanupBootState, NamesThePathThatCannotBeRemoved) {
  std::string busy = kBootState + "/busy";
  std::filesystem::create_directories(busy);
  if (mount("none", busy.c_str(), "tmpfs", 0, nullptr) != 0) {
    GTEST_SKIP() << "cannot mount here: " << std::strerror(errno);
  }
  EXPECT_EQ(failureOf(HypConfigStore::CleanupBootState),
            "cannot remove " + busy + ": Device or resource busy");
  EXPECT_EQ(umount(busy.c_str()), 0);
}

}  // namespace
}  // namespace bootforge::test
