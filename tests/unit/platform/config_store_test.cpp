#include "platform/config_store.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/log.h"
#include "tests/support/refused_call.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/wrapped_calls.h"

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

/// What is mounted in it during a test is taken away again.
class BootState : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(kBootState); }
  void TearDown() override {
    for (auto path = mounts_.rbegin(); path != mounts_.rend(); ++path) {
      EXPECT_EQ(umount(path->c_str()), 0) << *path;
    }
  }

  /// False where nothing can be mounted.
  bool mountAt(const std::string& path, const char* source, const char* type, unsigned long flags) {
    if (mount(source, path.c_str(), type, flags, nullptr) != 0) return false;
    mounts_.push_back(path);
    return true;
  }

  std::vector<std::string> mounts_;
};

/// Cleans in a child whose log is its standard output.
Finished cleanUp() {
  return runInChild([] {
    Dictionary* config = Dictionary_Create();
    Dict_SetBool(config, false, "log.useTimeStamps.stdio");
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", config, 0)));
    Dictionary_Free(config);
    std::fputs(failureOf(HypConfigStore::CleanupBootState).c_str(), stderr);
  });
}

// To fts(3) a listing that fails is one that has ended.
TEST_F(BootState, AListingThatFailsIsAFailure) {
  writeFile(kBootState + "/a/file", "");
  Finished child = runInChild([] {
    if (!refuse(SYS_getdents64, EIO)) GTEST_SKIP() << "system calls cannot be refused here";
    EXPECT_EQ(failureOf(HypConfigStore::CleanupBootState),
              "cannot remove what is below " + kBootState + ": Input/output error");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_F(BootState, LeavesAMountedFileSystemAloneAndCleansBesideIt) {
  std::string mounted = kBootState + "/a/mounted";
  std::filesystem::create_directories(mounted);
  if (!mountAt(mounted, "none", "tmpfs", 0)) {
    GTEST_SKIP() << "cannot mount here: " << std::strerror(errno);
  }
  writeFile(mounted + "/precious", "");
  writeFile(kBootState + "/a/beside", "");
  writeFile(kBootState + "/b/file", "");
  Finished child = cleanUp();
  EXPECT_EQ(child.err, "");
  EXPECT_TRUE(child.out.ends_with("]: " + mounted + " is left alone: it is a mount\n"))
      << child.out;
  EXPECT_TRUE(child.out.starts_with("warning ")) << child.out;
  EXPECT_TRUE(exists(mounted + "/precious"));
  EXPECT_FALSE(exists(kBootState + "/a/beside"));
  EXPECT_FALSE(exists(kBootState + "/b"));
}

TEST_F(BootState, LeavesAFolderOrFileOfTheSameFileSystemAloneThatIsMounted) {
  std::string folder = kBootState + "/folder";
  std::string file = kBootState + "/file";
  std::filesystem::create_directories(folder);
  writeFile(file, "");
  writeFile("/etc/precious/file", "");
  if (!mountAt(folder, "/etc/precious", nullptr, MS_BIND) ||
      !mountAt(file, "/etc/precious/file", nullptr, MS_BIND)) {
    GTEST_SKIP() << "cannot mount here: " << std::strerror(errno);
  }
  writeFile(kBootState + "/other", "");
  Finished child = cleanUp();
  EXPECT_EQ(child.err, "");
  EXPECT_NE(child.out.find("]: " + folder + " is left alone: it is a mount\n"), std::string::npos)
      << child.out;
  EXPECT_NE(child.out.find("]: " + file + " is left alone: it is a mount\n"), std::string::npos)
      << child.out;
  EXPECT_TRUE(exists("/etc/precious/file"));
  EXPECT_FALSE(exists(kBootState + "/other"));
}

TEST_F(BootState, MayBeAMountItself) {
  if (!mountAt(kBootState, "none", "tmpfs", 0)) {
    GTEST_SKIP() << "cannot mount here: " << std::strerror(errno);
  }
  writeFile(kBootState + "/a/file", "");
  Finished child = cleanUp();
  EXPECT_EQ(child.err + child.out, "");
  EXPECT_TRUE(std::filesystem::is_empty(kBootState));
}

TEST_F(BootState, IsCleanedOfAllElseWhenOneThingCannotBeRemoved) {
  writeFile(kBootState + "/locked/one", "");
  writeFile(kBootState + "/locked/two", "");
  writeFile(kBootState + "/a", "");
  writeFile(kBootState + "/z/file", "");
  Finished child = runInChild([] {
    removals = {.path = kBootState + "/locked/", .error = EPERM};
    std::fputs(failureOf(HypConfigStore::CleanupBootState).c_str(), stderr);
  });
  EXPECT_TRUE(child.err == "cannot remove " + kBootState +
                               "/locked/one: Operation not permitted, and 1 more that could not be "
                               "removed" ||
              child.err == "cannot remove " + kBootState +
                               "/locked/two: Operation not permitted, and 1 more that could not be "
                               "removed")
      << child.err;
  EXPECT_TRUE(exists(kBootState + "/locked/one"));
  EXPECT_TRUE(exists(kBootState + "/locked/two"));
  EXPECT_FALSE(exists(kBootState + "/a"));
  EXPECT_FALSE(exists(kBootState + "/z"));
}

TEST_F(BootState, NamesTheOneThingThatCannotBeRemoved) {
  writeFile(kBootState + "/folder/file", "");
  Finished child = runInChild([] {
    removals = {.path = kBootState + "/folder/file", .error = EPERM};
    std::fputs(failureOf(HypConfigStore::CleanupBootState).c_str(), stderr);
  });
  EXPECT_EQ(child.err, "cannot remove " + kBootState + "/folder/file: Operation not permitted");
}

TEST_F(BootState, IsCleanedHoweverDeepItIs) {
  ASSERT_EQ(chdir(kBootState.c_str()), 0);
  for (int depth = 0; depth < 1'000; ++depth) {
    ASSERT_EQ(mkdir("d", 0755), 0);
    ASSERT_EQ(chdir("d"), 0);
  }
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(failureOf(HypConfigStore::CleanupBootState), "");
  EXPECT_TRUE(std::filesystem::is_empty(kBootState));
}

}  // namespace
}  // namespace bootforge::test
