// The standard streams of forked children.
#include "util/standard_streams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "tests/unit/main/program.h"
#include "util/unique_fd.h"

namespace bootforge::test {
namespace {

using doubles::failCall;
using doubles::logLine;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kFile = "/var/log/streams.log";

void say(int stream, const char* text) {
  [[maybe_unused]] const ssize_t written = ::write(stream, text, std::strlen(text));
}

bool isNullDevice(int fd) {
  struct stat ours {};
  struct stat null {};
  return ::fstat(fd, &ours) == 0 && ::stat("/dev/null", &null) == 0 && S_ISCHR(ours.st_mode) &&
         ours.st_rdev == null.st_rdev;
}

class StandardStreams : public ProgramTest {
 protected:
  static constexpr int kInputIsNull = 1;

  /// Redirects the streams of a process, which then speaks on both. The status says what standard
  /// input is, which a closed file was before.
  static Outcome redirected(const char* path = kFile) {
    return inChild([path] {
      const int zero = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
      ::dup2(zero, STDIN_FILENO);
      ::close(zero);
      const int before = countOpenDescriptors();
      redirectStandardStreams(path);
      say(STDOUT_FILENO, "out\n");
      say(STDERR_FILENO, "err\n");
      if (countOpenDescriptors() != before) return 50;
      return isNullDevice(STDIN_FILENO) ? kInputIsNull : 0;
    });
  }
};

TEST_F(StandardStreams, InputIsTheNullDeviceAndTheRestGoesToTheFile) {
  const Outcome outcome = redirected();
  EXPECT_EQ(outcome.status, kInputIsNull);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(readFile(kFile), "out\nerr\n");
  EXPECT_EQ(std::filesystem::status(kFile).permissions(), std::filesystem::perms(0644));
  EXPECT_THAT(doubles::records(), IsEmpty());
}

TEST_F(StandardStreams, TheFileIsAppendedTo) {
  writeFile(kFile, "before\n", 0600);
  redirected();
  EXPECT_EQ(readFile(kFile), "before\nout\nerr\n");
  EXPECT_EQ(std::filesystem::status(kFile).permissions(), std::filesystem::perms(0600));
}

TEST_F(StandardStreams, TwoChildrenDoNotTruncateEachOther) {
  constexpr int kLines = 500;
  const Outcome outcome = inChild([] {
    for (const char* line : {"a first child's line\n", "another child's line\n"}) {
      if (::fork() != 0) continue;
      redirectStandardStreams(kFile);
      for (int i = 0; i < kLines; ++i) say(i % 2 == 0 ? STDOUT_FILENO : STDERR_FILENO, line);
      ::_exit(0);
    }
    while (::wait(nullptr) > 0) {
    }
    return 0;
  });
  ASSERT_EQ(outcome.status, 0);
  std::istringstream text(readFile(kFile));
  int first = 0;
  int second = 0;
  for (std::string line; std::getline(text, line);) {
    first += line == "a first child's line";
    second += line == "another child's line";
  }
  EXPECT_EQ(first, kLines);
  EXPECT_EQ(second, kLines);
}

TEST_F(StandardStreams, WithoutTheFoldersOfTheFileOutputAndErrorStay) {
  const Outcome outcome = redirected("/var/missing/streams.log");
  EXPECT_EQ(outcome.status, kInputIsNull);
  EXPECT_EQ(outcome.out, "out\n");
  EXPECT_EQ(outcome.err, "err\n");
  EXPECT_THAT(doubles::records(),
              ElementsAre(logLine(3, "Failed opening log file /var/missing/streams.log\n")));
}

TEST_F(StandardStreams, AFolderInThePlaceOfTheFileIsToldOnce) {
  std::filesystem::create_directories(kFile);
  EXPECT_EQ(redirected().out, "out\n");
  EXPECT_THAT(doubles::records(),
              ElementsAre(logLine(3, "Failed opening log file /var/log/streams.log\n")));
}

TEST_F(StandardStreams, AFifoThatNobodyReadsIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(kFile, 0600), 0);
  EXPECT_EQ(redirected().out, "out\n");
  EXPECT_THAT(doubles::records(),
              ElementsAre(logLine(3, "Failed opening log file /var/log/streams.log\n")));
}

/// A link in the place of the file, to another file; the folder has that mode.
void linkElsewhere(mode_t folder) {
  writeFile("/etc/precious", "precious\n", 0600);
  ASSERT_EQ(::chmod("/var/log", folder), 0);
  ASSERT_EQ(::symlink("/etc/precious", kFile), 0);
}

const doubles::Record kNotOpened = logLine(3, "Failed opening log file /var/log/streams.log\n");

TEST_F(StandardStreams, ALinkOfOursWhereNobodyElseMayWriteIsFollowed) {
  linkElsewhere(0755);
  redirected();
  EXPECT_EQ(readFile("/etc/precious"), "precious\nout\nerr\n");
  EXPECT_THAT(doubles::records(), IsEmpty());
}

TEST_F(StandardStreams, ALinkOfOursToAFileThatIsNotThereMakesIt) {
  ASSERT_EQ(::symlink("/etc/elsewhere", kFile), 0);
  redirected();
  EXPECT_EQ(readFile("/etc/elsewhere"), "out\nerr\n");
}

TEST_F(StandardStreams, ALinkWhereOthersMayWriteIsNotFollowed) {
  for (const mode_t folder : {01777U, 0775U, 0757U}) {
    linkElsewhere(folder);
    const Outcome outcome = redirected();
    EXPECT_EQ(outcome.out + outcome.err, "out\nerr\n");
    EXPECT_EQ(readFile("/etc/precious"), "precious\n");
    EXPECT_THAT(doubles::records(), ElementsAre(kNotOpened));
    doubles::reset();
    ::unlink(kFile);
  }
}

TEST_F(StandardStreams, AFileWithAnotherNameWhereOthersMayWriteIsNotWrittenTo) {
  writeFile("/etc/precious", "precious\n", 0600);
  ASSERT_EQ(::link("/etc/precious", kFile), 0);
  ASSERT_EQ(::chmod("/var/log", 0777), 0);
  EXPECT_EQ(redirected().out, "out\n");
  EXPECT_EQ(readFile("/etc/precious"), "precious\n");
  EXPECT_THAT(doubles::records(), ElementsAre(kNotOpened));
  ASSERT_EQ(::chmod("/var/log", 0755), 0);
  redirected();
  EXPECT_EQ(readFile("/etc/precious"), "precious\nout\nerr\n");
}

TEST_F(StandardStreams, AFifoWhereOthersMayWriteIsNotWrittenToThoughSomebodyReads) {
  ASSERT_EQ(::mkfifo(kFile, 0666), 0);
  const UniqueFd reader(::open(kFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(reader);
  ASSERT_EQ(::chmod("/var/log", 01777), 0);
  EXPECT_EQ(redirected().out, "out\n");
  EXPECT_THAT(doubles::records(), ElementsAre(kNotOpened));
}

TEST_F(StandardStreams, APlainFileWhereOthersMayWriteIsWrittenTo) {
  writeFile(kFile, "old\n");
  ASSERT_EQ(::chmod("/var/log", 0777), 0);
  redirected();
  EXPECT_EQ(readFile(kFile), "old\nout\nerr\n");
  EXPECT_THAT(doubles::records(), IsEmpty());
}

constexpr uid_t kSomebody = 54321;

TEST_F(StandardStreams, AnothersLinkIsNotFollowed) {
  linkElsewhere(0755);
  if (::lchown(kFile, kSomebody, kSomebody) != 0) GTEST_SKIP() << "there is no other user here";
  EXPECT_EQ(redirected().out, "out\n");
  EXPECT_EQ(readFile("/etc/precious"), "precious\n");
  EXPECT_THAT(doubles::records(), ElementsAre(kNotOpened));
}

TEST_F(StandardStreams, ALinkInAnothersFolderIsNotFollowed) {
  linkElsewhere(0755);
  if (::chown("/var/log", kSomebody, kSomebody) != 0) GTEST_SKIP() << "there is no other user here";
  EXPECT_EQ(redirected().out, "out\n");
  EXPECT_EQ(readFile("/etc/precious"), "precious\n");
  EXPECT_THAT(doubles::records(), ElementsAre(kNotOpened));
}

TEST_F(StandardStreams, TheFileIsWrittenToWithoutLoss) {
  const Outcome outcome = inChild([] {
    redirectStandardStreams(kFile);
    const int flags = ::fcntl(STDOUT_FILENO, F_GETFL);
    return (flags & O_APPEND) != 0 && (flags & O_NONBLOCK) == 0 ? 0 : 1;
  });
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(StandardStreams, WithoutANullDeviceInputStays) {
  failCall("open", {.error = ENOENT, .times = 1, .skip = 2});  // behind the child's own two
  const Outcome outcome = redirected();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(readFile(kFile), "out\nerr\n");
  EXPECT_THAT(doubles::records(), ElementsAre(logLine(3, "Failed opening /dev/null\n")));
}

/// Makes the redirection of one of the streams fail, behind the child's own four.
void failDup2(int stream) { failCall("dup2", {.error = EBADF, .times = 1, .skip = 4 + stream}); }

TEST_F(StandardStreams, AnInputThatCannotBeRedirectedIsTold) {
  failDup2(STDIN_FILENO);
  const Outcome outcome = redirected();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(readFile(kFile), "out\nerr\n");
  EXPECT_THAT(doubles::records(),
              ElementsAre(logLine(3, "Failed redirecting stdin to /dev/null\n")));
}

TEST_F(StandardStreams, AnOutputThatCannotBeRedirectedIsTold) {
  failDup2(STDOUT_FILENO);
  const Outcome outcome = redirected();
  EXPECT_EQ(outcome.out, "out\n");
  EXPECT_EQ(readFile(kFile), "err\n");
  EXPECT_THAT(doubles::records(),
              ElementsAre(logLine(3, "Failed redirecting stdout to /var/log/streams.log\n")));
}

TEST_F(StandardStreams, AnErrorStreamThatCannotBeRedirectedIsTold) {
  failDup2(STDERR_FILENO);
  const Outcome outcome = redirected();
  EXPECT_EQ(outcome.err, "err\n");
  EXPECT_EQ(readFile(kFile), "out\n");
  EXPECT_THAT(doubles::records(),
              ElementsAre(logLine(3, "Failed redirecting stderr to /var/log/streams.log\n")));
}

TEST_F(StandardStreams, AnInterruptedRedirectionIsRepeated) {
  failCall("dup2", {.error = EINTR, .times = 3, .skip = 4});
  EXPECT_EQ(redirected().status, kInputIsNull);
  EXPECT_EQ(readFile(kFile), "out\nerr\n");
  EXPECT_THAT(doubles::records(), IsEmpty());
}

TEST_F(StandardStreams, APathIsNeverTakenForAFormat) {
  redirected("/missing/%s%n");
  EXPECT_THAT(doubles::records(), ElementsAre(logLine(3,
                                                      "Failed opening log file "
                                                      "/missing/%s%n\n")));
}

TEST_F(StandardStreams, MissingStreamsAreOpenedOnTheNullDevice) {
  const Outcome outcome = inChild([] {
    ::close(STDIN_FILENO);
    ::close(STDERR_FILENO);
    openMissingStandardStreams();
    say(STDOUT_FILENO, "still here");
    return isNullDevice(STDIN_FILENO) && isNullDevice(STDERR_FILENO) ? 0 : 1;
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "still here");
}

}  // namespace
}  // namespace bootforge::test
