#include "util/afstream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/double/faults.h"
#include "tests/support/own_process.h"
#include "tests/support/scratch_root.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

using doubles::afterCall;
using doubles::callCount;
using doubles::failCall;
using test::exists;
using test::readFile;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr const char* kFolder = "/scratch";
constexpr const char* kFile = "/scratch/file";

class AtomicFileStream : public testing::Test {
 protected:
  void SetUp() override {
    doubles::resetFaults();
    std::filesystem::create_directories(kFolder);
  }
  void TearDown() override { doubles::resetFaults(); }

  static std::vector<std::string> filesIn(const char* folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  static mode_t modeOf(const char* path) {
    struct stat status {};
    EXPECT_EQ(::stat(path, &status), 0) << path;
    return status.st_mode & 07777;
  }

  /// Runs an action and returns the text of the FileError that it must throw.
  static std::string failureOf(const std::function<void()>& action, int error) {
    try {
      action();
    } catch (const FileError& failure) {
      EXPECT_EQ(failure.error(), error);
      return failure.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return "";
  }
};

TEST_F(AtomicFileStream, CommitPutsTheContentInPlace) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "line " << 1 << '\n';
  EXPECT_FALSE(exists(kFile));
  file.commit();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(readFile(kFile), "line 1\n");
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, TheTemporaryFileStandsBesideTheDestinationWithSixCharacters) {
  afstream file;
  file.open(kFile, std::ios_base::openmode{});
  EXPECT_THAT(filesIn(kFolder), ElementsAre(MatchesRegex("file\\.[A-Za-z0-9]{6}")));
  EXPECT_EQ(modeOf((std::string(kFolder) + "/" + filesIn(kFolder).front()).c_str()), mode_t{0600});
}

TEST_F(AtomicFileStream, DestructionWithoutCommitLeavesTheDestinationAndNothingElse) {
  writeFile(kFile, "old");
  {
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    file << "new" << std::flush;
  }
  EXPECT_EQ(readFile(kFile), "old");
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, ANewFileKeepsMode0600) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.commit();
  EXPECT_EQ(modeOf(kFile), mode_t{0600});
}

TEST_F(AtomicFileStream, AReplacedFileKeepsItsPermissionBits) {
  for (const mode_t mode : {0644U, 0600U, 0755U, 0444U}) {
    writeFile(kFile, "old", mode);
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    file << "new";
    file.commit();
    EXPECT_EQ(modeOf(kFile), mode);
    EXPECT_EQ(readFile(kFile), "new");
  }
}

TEST_F(AtomicFileStream, CommitOfAnUnopenedStreamThrows) {
  afstream file;
  EXPECT_EQ(failureOf([&] { file.commit(); }, EINVAL), "commit invoked on an unknown destination");
}

TEST_F(AtomicFileStream, OpeningInAMissingFolderNamesTheDestination) {
  afstream file;
  EXPECT_EQ(failureOf([&] { file.open("/missing/file", std::ios_base::trunc); }, ENOENT),
            "unable to create temporary file to write '/missing/file': No such file or directory");
  EXPECT_EQ(failureOf([&] { file.commit(); }, EINVAL), "commit invoked on an unknown destination");
}

TEST_F(AtomicFileStream, WithoutMemoryForThePatternOpenThrows) {
  afstream file;
  failCall("calloc", {.error = ENOMEM});
  EXPECT_EQ(failureOf([&] { file.open(kFile, std::ios_base::trunc); }, ENOMEM),
            "insufficient memory to allocate buffer");
  EXPECT_THAT(filesIn(kFolder), IsEmpty());
}

TEST_F(AtomicFileStream, APatternThatCannotBeFormattedMakesOpenThrow) {
  afstream file;
  failCall("snprintf", {.error = EOVERFLOW});
  EXPECT_EQ(failureOf([&] { file.open(kFile, std::ios_base::trunc); }, EOVERFLOW),
            "unable to allocate mkstemp pattern");
  EXPECT_THAT(filesIn(kFolder), IsEmpty());
}

TEST_F(AtomicFileStream, AModeThatMakesNoSenseFailsAndItsTemporaryFileIsRemoved) {
  afstream file;
  const auto nonsense = std::ios_base::app | std::ios_base::trunc;
  errno = ENOENT;
  EXPECT_EQ(failureOf([&] { file.open(kFile, nonsense); }, EINVAL),
            "failed to create temp file: Invalid argument");
  EXPECT_TRUE(file.fail());
  EXPECT_THAT(filesIn(kFolder), ElementsAre(StartsWith("file.")));
  file.open(kFile, std::ios_base::trunc);
  EXPECT_TRUE(file.good()) << "a stream that could be opened is as good as new";
  EXPECT_EQ(filesIn(kFolder).size(), 1U);
}

TEST_F(AtomicFileStream, WithoutADescriptorForTheStreamItsTemporaryFileIsRemoved) {
  test::inChild([] {
    {
      // A sanitizer that looks at a kind of object for the first time needs descriptors of its own.
      afstream other;
      other.open(kFile, std::ios_base::trunc);
      other.setstate(std::ios_base::failbit);
      EXPECT_TRUE(other.fail());
      EXPECT_EQ(failureOf([] { afstream().commit(); }, EINVAL),
                "commit invoked on an unknown destination");
    }
    // Above the first number that is free, others may have been inherited.
    const UniqueFd next(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int last = UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)).get();
    const rlimit one{static_cast<rlim_t>(last) + 1, static_cast<rlim_t>(last) + 1};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &one), 0);
    {
      afstream file;
      EXPECT_EQ(failureOf([&] { file.open(kFile, std::ios_base::trunc); }, EMFILE),
                "failed to create temp file: Too many open files");
      EXPECT_TRUE(file.fail());
    }
    EXPECT_FALSE(std::filesystem::exists(kFile));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &one), 0);
  });
  EXPECT_THAT(filesIn(kFolder), IsEmpty());
}

// Who may write the folder may put a link in the place of the temporary file at any time.
TEST_F(AtomicFileStream, ALinkInThePlaceOfTheTemporaryFileLeadsNowhere) {
  writeFile("/etc/precious", "precious", 0600);
  writeFile(kFile, "old", 0644);
  const auto plant = [] {
    std::string path;
    for (const std::string& name : filesIn(kFolder)) {
      if (name != "file") path = std::string(kFolder) + "/" + name;
    }
    ASSERT_EQ(::unlink(path.c_str()), 0);
    ASSERT_EQ(::symlink("/etc/precious", path.c_str()), 0);
  };
  afterCall("mkstemp", plant);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new" << std::flush;
  EXPECT_TRUE(file.good());
  file.commit();
  EXPECT_EQ(readFile("/etc/precious"), "precious");
  EXPECT_EQ(modeOf("/etc/precious"), mode_t{0600});
}

TEST_F(AtomicFileStream, ALinkInThePlaceOfTheMovedFileKeepsTheModeOfItsTarget) {
  writeFile("/etc/precious", "precious", 0600);
  writeFile(kFile, "old", 0644);
  afterCall("rename", [] {
    ASSERT_EQ(::unlink(kFile), 0);
    ASSERT_EQ(::symlink("/etc/precious", kFile), 0);
  });
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.commit();
  EXPECT_EQ(modeOf("/etc/precious"), mode_t{0600});
}

TEST_F(AtomicFileStream, TheSetIdBitsAreNeverTakenOver) {
  const std::pair<mode_t, mode_t> modes[] = {{04755, 0755}, {02644, 0644}, {06777, 0777}};
  for (const auto& [before, after] : modes) {
    writeFile(kFile, "old");
    ASSERT_EQ(::chmod(kFile, before), 0);
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    file.commit();
    EXPECT_EQ(modeOf(kFile), after);
  }
}

/// Makes a file somebody else's; false where there is nobody else.
bool giveAway(const char* path) {
  constexpr uid_t kSomebody = 54321;
  return ::lchown(path, kSomebody, kSomebody) == 0;
}

TEST_F(AtomicFileStream, ThePermissionBitsOfAnothersFileAreNotTakenOver) {
  writeFile(kFile, "planted", 0666);
  if (!giveAway(kFile)) GTEST_SKIP() << "there is no other user here";
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  file.commit();
  EXPECT_EQ(readFile(kFile), "new");
  EXPECT_EQ(modeOf(kFile), mode_t{0600});
}

TEST_F(AtomicFileStream, ThePermissionBitsBehindAnothersLinkAreNotTakenOver) {
  writeFile("/etc/open", "", 0666);
  ASSERT_EQ(::symlink("/etc/open", kFile), 0);
  if (!giveAway(kFile)) GTEST_SKIP() << "there is no other user here";
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.commit();
  EXPECT_FALSE(std::filesystem::is_symlink(kFile));
  EXPECT_EQ(modeOf(kFile), mode_t{0600});
}

TEST_F(AtomicFileStream, ThePermissionBitsOfAnothersFileBehindOurLinkAreNotTakenOver) {
  writeFile("/etc/open", "", 0666);
  ASSERT_EQ(::symlink("/etc/open", kFile), 0);
  if (!giveAway("/etc/open")) GTEST_SKIP() << "there is no other user here";
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.commit();
  EXPECT_EQ(modeOf(kFile), mode_t{0600});
}

TEST_F(AtomicFileStream, ThePermissionBitsOfADeviceBehindOurLinkAreNotTakenOver) {
  ASSERT_EQ(::mkfifo("/etc/open", 0600), 0);
  ASSERT_EQ(::chmod("/etc/open", 0666), 0);
  ASSERT_EQ(::symlink("/etc/open", kFile), 0);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.commit();
  EXPECT_EQ(modeOf(kFile), mode_t{0600});
}

TEST_F(AtomicFileStream, ALinkOfOursIsReplacedByAFileWithTheModeOfItsTarget) {
  writeFile("/etc/target", "untouched", 0640);
  ASSERT_EQ(::symlink("/etc/target", kFile), 0);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  file.commit();
  EXPECT_FALSE(std::filesystem::is_symlink(kFile));
  EXPECT_EQ(modeOf(kFile), mode_t{0640});
  EXPECT_EQ(readFile(kFile), "new");
  EXPECT_EQ(readFile("/etc/target"), "untouched");
}

TEST_F(AtomicFileStream, ItsDescriptorsAreCloseOnExec) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  int open = 0;
  for (int fd = 3; fd < 256; ++fd) {
    const int flags = ::fcntl(fd, F_GETFD);
    struct stat status {};
    if (flags == -1 || ::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) continue;
    open += (flags & FD_CLOEXEC) != 0;
  }
  EXPECT_GE(open, 2);
}

TEST_F(AtomicFileStream, AFailedRenameLeavesTheOldFileAndNothingElse) {
  writeFile(kFile, "old");
  {
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    file << "new";
    const std::string temporary = std::string(kFolder) + "/" + filesIn(kFolder).back();
    failCall("rename", {.error = EROFS});
    EXPECT_EQ(failureOf([&] { file.commit(); }, EROFS),
              "unable to rename '" + temporary + "' to '/scratch/file': Read-only file system");
  }
  EXPECT_EQ(readFile(kFile), "old");
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, AFailedRenameToANewFileLeavesNothing) {
  {
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    failCall("rename", {.error = EIO});
    EXPECT_THAT(
        failureOf([&] { file.commit(); }, EIO),
        MatchesRegex("unable to rename '/scratch/file\\.[A-Za-z0-9]{6}' to '/scratch/file': "
                     "Input/output error"));
  }
  EXPECT_THAT(filesIn(kFolder), IsEmpty());
}

TEST_F(AtomicFileStream, ADestinationThatIsAFolderIsNotReplaced) {
  std::filesystem::create_directories(kFile);
  {
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    EXPECT_THAT(failureOf([&] { file.commit(); }, EISDIR), testing::EndsWith("': Is a directory"));
  }
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, FailedRestorationOfPermissionsIsToldOfANewContentThatIsInPlace) {
  writeFile(kFile, "old", 0644);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  failCall("chmod", {.error = EPERM});
  EXPECT_EQ(failureOf([&] { file.commit(); }, EPERM),
            "failed to restore file permissions, file permissions may be incorrect: Operation not "
            "permitted");
  EXPECT_EQ(readFile(kFile), "new");
  EXPECT_EQ(modeOf(kFile), mode_t{0600});
}

TEST_F(AtomicFileStream, ADestinationThatCannotBeLookedAtIsReplacedAndItsErrorKept) {
  writeFile(kFile, "old", 0644);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  doubles::resetFaults();
  failCall("stat", {.error = EACCES});
  EXPECT_EQ(
      failureOf([&] { file.commit(); }, EACCES),
      "failed to restore file permissions, file permissions may be incorrect: Permission denied");
  EXPECT_EQ(readFile(kFile), "new");
  EXPECT_EQ(callCount("chmod"), 0);
}

TEST_F(AtomicFileStream, ADestinationThatCanNeitherBeLookedAtNorReplacedIsARenameFailure) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  failCall("stat", {.error = EACCES});
  failCall("rename", {.error = EXDEV});
  EXPECT_THAT(failureOf([&] { file.commit(); }, EXDEV), StartsWith("unable to rename '"));
  EXPECT_EQ(readFile(kFile), "old");
}

/// The kinds of things that were synced are told by their number: file, then folder.
TEST_F(AtomicFileStream, CommitSyncsTheFileBeforeTheRenameAndTheFolderAfterIt) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  bool replacedAtFirstSync = true;
  afterCall("fsync", [&] { replacedAtFirstSync = exists(kFile); });
  int syncsBeforeRename = 0;
  afterCall("rename", [&] { syncsBeforeRename = callCount("fsync"); });
  file.commit();
  EXPECT_FALSE(replacedAtFirstSync);
  EXPECT_EQ(syncsBeforeRename, 1);
  EXPECT_EQ(callCount("fsync"), 2);
  EXPECT_TRUE(file.good());
  EXPECT_EQ(file.syncError(), 0);
}

TEST_F(AtomicFileStream, TheContentIsInTheFileWhenItIsSynced) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  std::string synced;
  afterCall("fsync", [&] { synced = readFile(kFolder + ("/" + filesIn(kFolder).front())); });
  file.commit();
  EXPECT_EQ(synced, "new");
}

// 0x4d44 and 0x2011bab0, from linux/magic.h, are what statfs(2) says of FAT and exFAT.
TEST_F(AtomicFileStream, OnAFatVolumeTheMovedFileIsSyncedOnceMore) {
  for (const long type : {0x4d44L, 0x2011bab0L}) {
    doubles::resetFaults();
    doubles::reportFileSystem(type);
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    int syncsBeforeRename = 0;
    afterCall("rename", [&] { syncsBeforeRename = callCount("fsync"); });
    file.commit();
    EXPECT_EQ(syncsBeforeRename, 1);
    EXPECT_EQ(callCount("fsync"), 3) << std::hex << type;
  }
}

TEST_F(AtomicFileStream, AFailingSyncOfTheFileKeepsTheOldOne) {
  for (const int error : {EIO, ENOSPC, EDQUOT}) {
    writeFile(kFile, "old");
    {
      afstream file;
      file.open(kFile, std::ios_base::trunc);
      file << "new";
      failCall("fsync", {.error = error});
      EXPECT_EQ(failureOf([&] { file.commit(); }, error),
                std::string("unable to sync the new '/scratch/file': ") + std::strerror(error));
    }
    EXPECT_EQ(readFile(kFile), "old");
    EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
  }
}

TEST_F(AtomicFileStream, AFailingSyncKeepsAnOldFileThatCannotBeLookedAt) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  failCall("fsync", {.error = EIO});
  failCall("stat", {.error = EACCES});
  EXPECT_EQ(failureOf([&] { file.commit(); }, EIO),
            "unable to sync the new '/scratch/file': Input/output error");
  EXPECT_EQ(readFile(kFile), "old");
}

TEST_F(AtomicFileStream, AFailingSyncOfAFileThatReplacesNoneOnlyShowsInTheStream) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  failCall("fsync", {.error = EIO});
  file.commit();
  EXPECT_TRUE(file.fail());
  EXPECT_EQ(file.syncError(), EIO);
  EXPECT_EQ(readFile(kFile), "new");
}

TEST_F(AtomicFileStream, AFailingSyncOfTheFolderOnlyShowsInTheStream) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  failCall("fsync", {.error = EIO, .skip = 1});
  file.commit();
  EXPECT_TRUE(file.fail());
  EXPECT_EQ(file.syncError(), EIO);
  EXPECT_EQ(readFile(kFile), "new");
}

TEST_F(AtomicFileStream, AFolderThatCannotBeOpenedCannotBeSynced) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  failCall("open", {.error = EMFILE});
  file.commit();
  EXPECT_TRUE(file.fail());
  EXPECT_EQ(file.syncError(), EMFILE);
}

TEST_F(AtomicFileStream, AFailingSyncOfTheMovedFileOnAFatVolumeShowsInTheStream) {
  doubles::reportFileSystem(0x4d44);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  failCall("fsync", {.error = EIO, .skip = 1});
  file.commit();
  EXPECT_EQ(file.syncError(), EIO);
  EXPECT_EQ(callCount("fsync"), 2) << "the folder was synced though it says nothing any more";
}

TEST_F(AtomicFileStream, ASyncThatSucceedsLaterDoesNotHideOneThatFailed) {
  for (const long type : {0x4d44L, 0L}) {
    doubles::resetFaults();
    doubles::reportFileSystem(type);
    std::filesystem::remove(kFile);
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    failCall("fsync", {.error = EIO});
    file.commit();
    EXPECT_TRUE(file.fail());
    EXPECT_EQ(file.syncError(), EIO) << std::hex << type;
  }
}

TEST_F(AtomicFileStream, AFileSystemWithoutSyncIsNoFailure) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "new";
  failCall("fsync", {.error = EINVAL, .times = 2});
  file.commit();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(file.syncError(), 0);
  EXPECT_EQ(readFile(kFile), "new");
}

TEST_F(AtomicFileStream, ALaterCommitDoesNotRememberTheFailedSync) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  failCall("fsync", {.error = EIO});
  file.commit();
  EXPECT_EQ(file.syncError(), EIO);
  file.open(kFile, std::ios_base::trunc);
  EXPECT_EQ(file.syncError(), 0);
  file.commit();
  EXPECT_EQ(file.syncError(), 0);
  EXPECT_TRUE(file.good());
}

TEST_F(AtomicFileStream, AnInterruptedSyncIsRepeated) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  failCall("fsync", {.error = EINTR, .times = 3});
  file.commit();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(callCount("fsync"), 5);
}

TEST_F(AtomicFileStream, AFullDiskShowsInTheStreamWhenItIsFlushed) {
  writeFile(kFile, "a good file");
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  {
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    const rlimit small{16, limit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    file << std::string(100, 'x');
    EXPECT_TRUE(file.good());
    file.flush();
    ::setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_FALSE(file.good());
  }
  EXPECT_EQ(readFile(kFile), "a good file");
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, AFailingCloseSetsTheFailbitAndThrowsNothing) {
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  const rlimit small{0, limit.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &small);
  file << "unwritten";
  file.commit();
  ::setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_TRUE(file.fail());
}

TEST_F(AtomicFileStream, TheLastOfTwoWritersWins) {
  afstream first;
  afstream second;
  first.open(kFile, std::ios_base::trunc);
  second.open(kFile, std::ios_base::trunc);
  first << "first";
  second << "second";
  EXPECT_EQ(filesIn(kFolder).size(), 2U);
  second.commit();
  first.commit();
  EXPECT_EQ(readFile(kFile), "first");
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, OpeningOnceMoreDropsWhatWasNotCommitted) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "dropped";
  file.open(kFile, std::ios_base::trunc);
  EXPECT_EQ(filesIn(kFolder).size(), 1U);
  file << "kept";
  file.commit();
  EXPECT_EQ(readFile(kFile), "kept");
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, AFailedOpenForgetsTheDestinationOfTheOneBefore) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  EXPECT_EQ(file.destination(), kFile);
  EXPECT_THROW(file.open("/missing/file", std::ios_base::trunc), FileError);
  EXPECT_EQ(file.destination(), "");
  EXPECT_EQ(failureOf([&] { file.commit(); }, EINVAL), "commit invoked on an unknown destination");
  EXPECT_EQ(readFile(kFile), "old");
  EXPECT_THAT(filesIn(kFolder), ElementsAre("file"));
}

TEST_F(AtomicFileStream, ASecondCommitHasNothingToMove) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file << "once";
  file.commit();
  EXPECT_THAT(failureOf([&] { file.commit(); }, ENOENT), StartsWith("unable to rename '"));
  EXPECT_EQ(readFile(kFile), "once");
}

TEST_F(AtomicFileStream, ARelativeDestinationIsReplacedInTheWorkingDirectory) {
  ASSERT_EQ(::chdir(kFolder), 0);
  afstream file;
  file.open("file", std::ios_base::trunc);
  file << "here";
  file.commit();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(readFile(kFile), "here");
}

TEST_F(AtomicFileStream, ADestinationInTheRootFolderIsReplaced) {
  afstream file;
  file.open("/file", std::ios_base::trunc);
  file << "here";
  file.commit();
  EXPECT_TRUE(file.good());
  EXPECT_EQ(readFile("/file"), "here");
}

TEST_F(AtomicFileStream, NoDescriptorIsLeftOpen) {
  const int before = test::countOpenDescriptors();
  {
    afstream file;
    file.open(kFile, std::ios_base::trunc);
    file.commit();
    copyFileInto(kFile, file);
  }
  { afstream().open(kFile, std::ios_base::trunc); }
  EXPECT_EQ(test::countOpenDescriptors(), before);
}

using CopyFileInto = AtomicFileStream;

TEST_F(CopyFileInto, CopiesEveryByteOfALongFile) {
  std::string content;
  for (int i = 0; i < 100000; ++i) content += static_cast<char>(i * 7);
  writeFile("/scratch/source", content);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  copyFileInto("/scratch/source", file);
  file << "and more";
  file.commit();
  EXPECT_EQ(readFile(kFile), content + "and more");
}

TEST_F(CopyFileInto, AnEmptyFileIsCopiedToo) {
  writeFile(kFile, "");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  copyFileInto(kFile, file);
  EXPECT_TRUE(file.good());
  file << "first line\n";
  file.commit();
  EXPECT_EQ(readFile(kFile), "first line\n");
}

TEST_F(CopyFileInto, AMissingFileThrowsAndLeavesTheStreamUsable) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  EXPECT_EQ(failureOf([&] { copyFileInto("/scratch/missing", file); }, ENOENT),
            "failed to write to temp file: No such file or directory");
  EXPECT_TRUE(file.good());
}

TEST_F(CopyFileInto, AFifoIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo("/scratch/fifo", 0600), 0);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  EXPECT_EQ(failureOf([&] { copyFileInto("/scratch/fifo", file); }, ENXIO),
            "failed to write to temp file: No such device or address");
}

TEST_F(CopyFileInto, AFolderIsNoSource) {
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  EXPECT_EQ(failureOf([&] { copyFileInto(kFolder, file); }, EISDIR),
            "failed to write to temp file: Is a directory");
}

TEST_F(CopyFileInto, WhereOthersMayWriteOnlyAFileOfOursWithoutAnotherNameIsCopied) {
  constexpr const char* kSource = "/scratch/source";
  constexpr const char* kRefusal = "failed to write to temp file: Operation not permitted";
  ASSERT_EQ(::chmod(kFolder, 0777), 0);
  writeFile("/etc/secret", "secret", 0600);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  ASSERT_EQ(::symlink("/etc/secret", kSource), 0);
  EXPECT_EQ(failureOf([&] { copyFileInto(kSource, file); }, EPERM), kRefusal);
  ::unlink(kSource);
  ASSERT_EQ(::link("/etc/secret", kSource), 0);
  EXPECT_EQ(failureOf([&] { copyFileInto(kSource, file); }, EPERM), kRefusal);
  ::unlink(kSource);
  writeFile(kSource, "ours");
  copyFileInto(kSource, file);
  if (giveAway(kSource)) {
    EXPECT_EQ(failureOf([&] { copyFileInto(kSource, file); }, EPERM), kRefusal);
  }
  file.commit();
  EXPECT_EQ(readFile(kFile), "ours");
}

TEST_F(CopyFileInto, WhereOnlyWeMayWriteALinkIsFollowed) {
  writeFile("/etc/elsewhere", "elsewhere");
  ASSERT_EQ(::symlink("/etc/elsewhere", "/scratch/source"), 0);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  copyFileInto("/scratch/source", file);
  file.commit();
  EXPECT_EQ(readFile(kFile), "elsewhere");
}

TEST_F(CopyFileInto, WhatWasCopiedCanBeReadByNobodyWhoCouldNotReadTheSource) {
  writeFile("/scratch/source", "secret", 0600);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  copyFileInto("/scratch/source", file);
  writeFile(kFile, "by now another one", 0644);
  file.commit();
  EXPECT_EQ(modeOf(kFile), mode_t{0600});
}

TEST_F(CopyFileInto, AFailingReadFailsTheStream) {
  writeFile("/scratch/source", "content");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  failCall("read", {.error = EIO});
  EXPECT_EQ(failureOf([&] { copyFileInto("/scratch/source", file); }, EIO),
            "failed to write to temp file: Input/output error");
  EXPECT_TRUE(file.fail());
}

TEST_F(CopyFileInto, AFullDiskThrows) {
  writeFile("/scratch/source", std::string(100000, 'x'));
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  const rlimit small{4096, limit.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &small);
  const std::string text = failureOf([&] { copyFileInto("/scratch/source", file); }, EFBIG);
  ::setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(text, "failed to write to temp file: File too large");
}

TEST_F(CopyFileInto, AStreamThatHasFailedAlreadyThrows) {
  writeFile("/scratch/source", "content");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.setstate(std::ios_base::badbit);
  EXPECT_THROW(copyFileInto("/scratch/source", file), FileError);
}

TEST_F(CopyFileInto, AStreamThatHasFailedAlreadyIsNotToldByAnOldError) {
  writeFile("/scratch/source", "content");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.setstate(std::ios_base::badbit);
  errno = ENOENT;
  EXPECT_EQ(failureOf([&] { copyFileInto("/scratch/source", file); }, 0),
            "failed to write to temp file: Success");
}

using WriteAndCommit = AtomicFileStream;

TEST_F(WriteAndCommit, ReplacesTheFile) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  writeAndCommit(file, std::string("new\0and more", 12));
  EXPECT_EQ(readFile(kFile), std::string("new\0and more", 12));
}

TEST_F(WriteAndCommit, OfAFailedStreamKeepsTheOldFileAndIsNotToldByAnOldError) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  file.setstate(std::ios_base::badbit);
  errno = ENOENT;
  EXPECT_EQ(failureOf([&] { writeAndCommit(file, "new"); }, 0),
            "unable to write '/scratch/file': Success");
  EXPECT_EQ(readFile(kFile), "old");
}

TEST_F(WriteAndCommit, TellsThatTheNewFileMayNotLast) {
  writeFile(kFile, "old");
  afstream file;
  file.open(kFile, std::ios_base::trunc);
  failCall("fsync", {.error = EIO, .skip = 1});
  EXPECT_EQ(failureOf([&] { writeAndCommit(file, "new"); }, EIO),
            "'/scratch/file' is replaced, but may not survive a power cut: Input/output error");
  EXPECT_EQ(readFile(kFile), "new");
}

}  // namespace
}  // namespace bootforge
