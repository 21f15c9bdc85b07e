#include "platform/linux/command_registry.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "platform/log.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"

namespace bootforge::test {
namespace {

using host_linux::Command;
using host_linux::CommandRegistry;
using Path = std::vector<std::string>;

/// A file that defines the command "c" of a namespace.
std::string commandFile(const std::string& nameSpace, const std::string& program) {
  return R"({"namespace": ")" + nameSpace + R"(", "commands": {"c": {"exec": [")" + program +
         "\"]}}}";
}

/// The program of a command; empty when there is no such command.
std::string programOf(const CommandRegistry& registry, const Path& path) {
  const Command* command = registry.find(path);
  return command ? command->program : "";
}

/// What is logged at levels up to 5 while a directory is registered.
std::string logOf(const std::string& directory) {
  Finished child = runInChild([&] {
    Log_SetStderrLevel(0, 5);
    CommandRegistry registry;
    int before = countOpenDescriptors();
    registry.addDirectory(directory);
    EXPECT_EQ(countOpenDescriptors(), before);
  });
  EXPECT_EQ(child.status, 0) << child.out;
  return child.err;
}

TEST(CommandDirectory, GivesTheCommandsOfAllItsFiles) {
  writeFile("/d/a.json", commandFile("network ip", "/a"));
  writeFile("/d/b.json", commandFile("storage", "/b"));
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_EQ(programOf(registry, {"network", "ip", "c"}), "/a");
  EXPECT_EQ(programOf(registry, {"storage", "c"}), "/b");
  EXPECT_EQ(registry.find({"network", "ip"}), nullptr);
  EXPECT_EQ(registry.find({"network", "ip", "c", "d"}), nullptr);
  EXPECT_EQ(registry.find({"network ip", "c"}), nullptr) << "words are words";
  EXPECT_EQ(registry.find({}), nullptr);
  EXPECT_EQ(registry.commands().at({"storage", "c"}).file, "/d/b.json");
}

TEST(CommandDirectory, IsReadToItsEndWhateverFailedBefore) {
  writeFile("/d/a.json", commandFile("n", "/a"));
  CommandRegistry registry;
  errno = ENOTTY;  // only readdir(3) itself may say that it failed
  EXPECT_NO_THROW(registry.addDirectory("/d"));
  EXPECT_EQ(registry.commands().size(), 1U);
}

TEST(CommandDirectory, MayEndInASlashAndMayBeEmpty) {
  writeFile("/d/a.json", commandFile("n", "/a"));
  CommandRegistry registry;
  registry.addDirectory("/d/");
  EXPECT_EQ(registry.commands().at({"n", "c"}).file, "/d/a.json");
  registry.addDirectory("/tmp");
  EXPECT_EQ(registry.commands().size(), 1U);
}

TEST(CommandDirectory, IsReadWithoutItsSubdirectories) {
  writeFile("/d/a.json", commandFile("n", "/a"));
  writeFile("/d/int/b.json", commandFile("n", "/b"));
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_EQ(programOf(registry, {"n", "c"}), "/a");
  EXPECT_EQ(logOf("/d"), "");
}

TEST(CommandDirectory, PassesOverFilesOfOtherNamesInSilence) {
  for (const char* name : {"/d/a.json~", "/d/a.jso", "/d/json", "/d/.json", "/d/.a.json"}) {
    writeFile(name, "no command file");
  }
  EXPECT_EQ(logOf("/d"), "");
}

TEST(CommandDirectory, NamesABadFileWithItsReasonAndGoesOn) {
  writeFile("/d/a.json", "oops");
  writeFile("/d/b.json", commandFile("n", "/b"));
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_EQ(programOf(registry, {"n", "c"}), "/b");
  EXPECT_EQ(logOf("/d"),
            "platform_tests: warning: command file /d/a.json is skipped: line 1: syntax error\n");
}

TEST(CommandDirectory, NamesAKeyThatIsNotKnownAndTakesTheFileAllTheSame) {
  writeFile("/d/a.json",
            R"({"namespace": "n", "comment": "", "commands": {"c": {"exec": ["/a"], "x": 1}}})");
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_EQ(programOf(registry, {"n", "c"}), "/a");
  const std::string start = "platform_tests: warning: command file /d/a.json: ";
  EXPECT_EQ(logOf("/d"), start + "unknown key \"comment\" is ignored\n" + start +
                             "command \"c\": unknown key \"x\" is ignored\n");
}

TEST(CommandDirectory, TakesNothingFromAFileThatIsBadInOneCommandOnly) {
  writeFile("/d/a.json",
            R"({"namespace": "n", "commands": {"good": {"exec": ["/x"]}, "bad": {}}})");
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_TRUE(registry.commands().empty());
  EXPECT_TRUE(registry.nameSpaces().empty());
}

TEST(CommandDirectory, NeverWaitsForWhatIsNoRegularFile) {
  ASSERT_EQ(mkdir("/d", 0755), 0);
  ASSERT_EQ(mkdir("/d/a.json", 0755), 0);
  ASSERT_EQ(symlink("nowhere", "/d/b.json"), 0);
  ASSERT_EQ(symlink("c.json", "/d/c.json"), 0);
  ASSERT_EQ(mkfifo("/d/d.json", 0600), 0);
  ASSERT_EQ(symlink("/dev/zero", "/d/e.json"), 0);
  int socketFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/d/f.json");
  ASSERT_EQ(bind(socketFd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(socketFd);
  const std::string start = "platform_tests: warning: command file /d/";
  EXPECT_EQ(logOf("/d"), start + "a.json is skipped: is no regular file\n" +  //
                             start + "b.json is skipped: No such file or directory\n" + start +
                             "c.json is skipped: Too many levels of symbolic links\n" + start +
                             "d.json is skipped: is no regular file\n" + start +
                             "e.json is skipped: is no regular file\n" + start +
                             "f.json is skipped: No such device or address\n");
}

TEST(CommandDirectory, FollowsALinkToAFile) {
  writeFile("/elsewhere", commandFile("n", "/linked"));
  ASSERT_EQ(mkdir("/d", 0755), 0);
  ASSERT_EQ(symlink("/elsewhere", "/d/a.json"), 0);
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_EQ(programOf(registry, {"n", "c"}), "/linked");
}

TEST(CommandDirectory, ReadsFilesLongerThanABufferButNoneWithoutBounds) {
  std::string blanks(200'000, ' ');
  writeFile("/d/a.json", blanks + commandFile("n", "/a") + blanks);
  writeFile("/d/b.json", "");
  ASSERT_EQ(truncate("/d/b.json", 17 << 20), 0);
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_EQ(programOf(registry, {"n", "c"}), "/a");
  EXPECT_EQ(logOf("/d"),
            "platform_tests: warning: command file /d/b.json is skipped: is larger than 16 MiB\n");
}

TEST(CommandDirectory, NamesItselfWithTheSystemErrorWhenItCannotBeRead) {
  writeFile("/file", "");
  int before = countOpenDescriptors();
  for (auto [path, reason] : {std::pair{"/nowhere", "/nowhere: No such file or directory"},
                              std::pair{"/file", "/file: Not a directory"}}) {
    CommandRegistry registry;
    try {
      registry.addDirectory(path);
      ADD_FAILURE() << path;
    } catch (const std::exception& error) {
      EXPECT_STREQ(error.what(), reason);
    }
  }
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST(CommandDirectory, IsReadInTheOrderOfNamesAndTheLastDefinitionCounts) {
  writeFile("/d/b.json", commandFile("n", "/second"));
  writeFile("/d/a.json", commandFile("n", "/first"));
  CommandRegistry registry;
  registry.addDirectory("/d");
  EXPECT_EQ(programOf(registry, {"n", "c"}), "/second");
  EXPECT_EQ(registry.commands().size(), 1U);
}

TEST(CommandDirectory, RegisteredLaterWinsAndThatIsLogged) {
  writeFile("/first/z.json", commandFile("n m", "/first"));
  writeFile("/second/a.json", commandFile("n m", "/second"));
  Finished child = runInChild([] {
    Log_SetStderrLevel(5, 5);
    CommandRegistry registry;
    registry.addDirectory("/first");
    registry.addDirectory("/second");
    EXPECT_EQ(programOf(registry, {"n", "m", "c"}), "/second");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(child.err,
            "platform_tests: info: command 'n m c' of /second/a.json takes the place of that of "
            "/first/z.json\n");
}

}  // namespace
}  // namespace bootforge::test
