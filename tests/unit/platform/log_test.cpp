#include "platform/log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/regex.hpp>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "platform/dictionary.h"
#include "platform/product_state.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/stdout_log.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace bootforge::test {
namespace {

/// A dictionary for the length of a scope.
class Config {
 public:
  Config() = default;
  ~Config() { Dictionary_Free(dictionary_); }
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;

  Config& set(const char* key, const char* value) {
    Dict_SetString(dictionary_, value, key);
    return *this;
  }
  Config& set(const char* key, bool value) {
    Dict_SetBool(dictionary_, value, key);
    return *this;
  }
  operator Dictionary*() { return dictionary_; }

 private:
  Dictionary* dictionary_ = Dictionary_Create();
};

std::string withoutPids(const std::string& text) {
  return boost::regex_replace(text, boost::regex("\\[[0-9]+\\]"), "[PID]");
}

TEST(LogToStdout, WritesTheTimeInUtcWithMillisecondsThenLevelIdentityAndPid) {
  // time(2) may lag behind the clock by a tick.
  const auto now = [] {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  };
  time_t before = now();
  pid_t pid = 0;
  Finished child = runInChild([] {
    setenv("TZ", "Asia/Tokyo", 1);
    Config config;
    config.set("log.stdoutLevel", "info")
        .set("log.useTimeStamps.stdio", true)
        .set("log.useMilliseconds.stdio", true);
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", config, 0)));
    Log_Level(2, "text of %d\n", 7);
    std::string pidText = std::to_string(getpid());
    writeFile("/pid", pidText);
  });
  time_t after = now();
  pid = std::atoi(readFile("/pid").c_str());
  boost::smatch match;
  boost::regex line(
      "(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d)\\.\\d{3}Z error bootforge\\[(\\d+)\\]: text of "
      "7\n");
  ASSERT_TRUE(boost::regex_match(child.out, match, line)) << child.out;
  EXPECT_EQ(match[2], std::to_string(pid));
  tm stamp{};
  ASSERT_NE(strptime(match[1].str().c_str(), "%Y-%m-%dT%H:%M:%S", &stamp), nullptr);
  EXPECT_GE(timegm(&stamp), before);
  EXPECT_LE(timegm(&stamp), after);
}

TEST(LogToStdout, NamesTheLevels) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    for (int level = 0; level <= 5; ++level) Log_Level(level, "%d", level);
  });
  EXPECT_EQ(withoutPids(child.out),
            "error bootforge[PID]: 0\n"
            "error bootforge[PID]: 1\n"
            "error bootforge[PID]: 2\n"
            "warning bootforge[PID]: 3\n"
            "notice bootforge[PID]: 4\n"
            "info bootforge[PID]: 5\n");
}

TEST(LogToStdout, DropsWhatIsLessImportantThanInfo) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    Log_Level(6, "gone");
    Log_Level(100, "gone");
    Log_Level(5, "kept");
  });
  EXPECT_EQ(withoutPids(child.out), "info bootforge[PID]: kept\n");
}

TEST(LogToStdout, HasTheThresholdOfItsConfiguration) {
  Finished child = runInChild([] {
    Config config;
    config.set("log.stdoutLevel", "warning").set("log.useTimeStamps.stdio", false);
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", config, 0)));
    for (int level = 2; level <= 6; ++level) Log_Level(level, "%d", level);
  });
  EXPECT_EQ(withoutPids(child.out), "error bootforge[PID]: 2\nwarning bootforge[PID]: 3\n");
}

TEST(LogToStdout, LeavesOutMillisecondsWhenToldSo) {
  Finished child = runInChild([] {
    Config config;
    config.set("log.useMilliseconds.stdio", false);
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", config, 0)));
    Log_Level(5, "text");
  });
  boost::regex line("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ info bootforge\\[\\d+\\]: text\n");
  EXPECT_TRUE(boost::regex_match(child.out, line)) << child.out;
}

TEST(LogToStdout, DoesWithoutAConfiguration) {
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", nullptr, 0)));
    Log_Level(5, "kept");
    Log_Level(6, "gone");
  });
  EXPECT_TRUE(
      boost::regex_match(child.out, boost::regex(".*\\.\\d{3}Z info bootforge\\[\\d+\\]: kept\n")))
      << child.out;
}

TEST(LogToStdout, RefusesATextThatIsNoLevel) {
  Config config;
  config.set("log.stdoutLevel", "loud");
  EXPECT_EQ(Log_NewStdioOutput("bootforge", config, 0), nullptr);
}

TEST(LogToStdout, RefusesATextThatIsNoTruthValue) {
  Config config;
  config.set("log.useTimeStamps.stdio", "perhaps");
  EXPECT_EQ(Log_NewStdioOutput("bootforge", config, 0), nullptr);
}

TEST(LogToStdout, CannotBeAddedTwiceOrWithoutAnOutput) {
  Finished child = runInChild([] {
    LogOutput* output = Log_NewStdioOutput("bootforge", nullptr, 0);
    EXPECT_TRUE(Log_AddOutput(output));
    EXPECT_FALSE(Log_AddOutput(output));
    EXPECT_FALSE(Log_AddOutput(nullptr));
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST(LogToStdout, DropsTrailingNewlinesAndAddsOne) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    Log_Level(5, "none");
    Log_Level(5, "one\n");
    Log_Level(5, "two\n\n");
    Log_Level(5, "\n");
  });
  EXPECT_EQ(withoutPids(child.out),
            "info bootforge[PID]: none\n"
            "info bootforge[PID]: one\n"
            "info bootforge[PID]: two\n"
            "info bootforge[PID]: \n");
}

TEST(LogToStdout, KeepsANewlineInsideTheTextWithoutASecondPrefix) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    Log_Level(5, "first\n\nsecond\n");
  });
  EXPECT_EQ(withoutPids(child.out), "info bootforge[PID]: first\n\nsecond\n");
}

TEST(LogToStdout, PassesAnyLengthAndAllThatIsNoControlCharacter) {
  std::string text(300'000, 'x');
  text += "\t\xff\xc2 \xc3\xa4\xc2\xa0 \\x1b end\xc2";
  Finished child = runInChild([&] {
    logToStdoutPlainly();
    Log_Level(5, "%s", text.c_str());
  });
  EXPECT_EQ(withoutPids(child.out), "info bootforge[PID]: " + text + "\n");
}

TEST(LogToStdout, WritesControlCharactersAsText) {
  std::string text;
  std::string expected;
  for (int c = 1; c < 0x20; ++c) {
    if (c == '\t' || c == '\n') continue;
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(c));
    text += static_cast<char>(c);
    expected += escaped;
  }
  Finished child = runInChild([&] {
    logToStdoutPlainly();
    Log_Level(5, "%s", text.c_str());
    Log_Level(5, "\x7f \xc2\x80 \xc2\x9f\r\n");
  });
  EXPECT_EQ(withoutPids(child.out), "info bootforge[PID]: " + expected + "\n" +
                                        "info bootforge[PID]: "
                                        "\\x7f \\xc2\\x80 \\xc2\\x9f\\x0d\n");
}

TEST(LogToStdout, WritesAMessageInOneCall) {
  Finished child = runInChild([] {
    int ends[2];
    // Each write to such a socket is a packet of its own.
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    int out = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    logToStdoutPlainly();
    Log_Level(5, "first\nsecond\n");
    Log_Level(5, "third\n");
    dup2(out, STDOUT_FILENO);
    std::vector<std::string> packets;
    for (int i = 0; i < 2; ++i) {
      char buffer[256];
      ssize_t count = recv(ends[0], buffer, sizeof buffer, MSG_DONTWAIT);
      ASSERT_GT(count, 0);
      packets.push_back(withoutPids(std::string(buffer, static_cast<std::size_t>(count))));
    }
    EXPECT_EQ(packets[0], "info bootforge[PID]: first\nsecond\n");
    EXPECT_EQ(packets[1], "info bootforge[PID]: third\n");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST(LogToStdout, SurvivesInterruptedAndShortWrites) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    for (std::size_t most : {5U, 1U}) {
      writeBehaviour = {.failures = 3, .error = EINTR, .most = most};
      Log_Level(5, "a text of more than five bytes");
    }
  });
  EXPECT_EQ(withoutPids(child.out),
            "info bootforge[PID]: a text of more than five bytes\n"
            "info bootforge[PID]: a text of more than five bytes\n");
}

TEST(LogToStdout, WaitsForANonBlockingStreamThatIsFull) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    writeBehaviour = {.failures = 1, .error = EAGAIN};
    Log_Level(5, "text");
  });
  EXPECT_EQ(withoutPids(child.out), "info bootforge[PID]: text\n");
}

TEST(LogToStdout, IsSilentWhenTheStreamIsClosedOrItsReaderGone) {
  Finished child = runInChild([] {
    signal(SIGPIPE, SIG_IGN);
    logToStdoutPlainly();
    int out = dup(STDOUT_FILENO);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    Log_Level(5, "into a broken pipe");
    close(STDOUT_FILENO);
    Log_Level(5, "into nothing");
    dup2(out, STDOUT_FILENO);
    Log_Level(5, "back");
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(withoutPids(child.out), "info bootforge[PID]: back\n");
  EXPECT_EQ(child.err, "");
}

TEST(Log, KeepsErrno) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    close(STDOUT_FILENO);
    errno = ENOTTY;
    Log_Level(5, "text");
    bool kept = errno == ENOTTY;
    Log_Syslog(3, "text");
    kept = kept && errno == ENOTTY;
    Warning("text");
    kept = kept && errno == ENOTTY;
    Log_Detach();
    kept = kept && errno == ENOTTY;
    _exit(kept ? 0 : 1);
  });
  EXPECT_EQ(child.status, 0);
}

TEST(Log, DropsMessagesBeforeItWasSetUp) {
  Finished child = runInChild([] {
    Log_Level(2, "lost");
    Warning("lost");
    Log_Syslog(3, "lost");
    Log_Detach();
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.out + child.err, "");
}

TEST(Log, TakesProductDataWithoutAWord) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    Log_SetProductInfo(ProductState_GetName(), ProductState_GetVersion(),
                       ProductState_GetBuildNumberString(), ProductState_GetCompilationOption());
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.out + child.err, "");
}

TEST(Log, EchoesTheChosenLevelsToStandardError) {
  Finished child = runInChild([] {
    Log_SetStderrLevel(0, 3);
    for (int level = 2; level <= 5; ++level) Log_Level(level, "%d\n", level);
    Log_SetStderrLevel(0, -1);
    Log_Level(2, "not echoed\n");
  });
  EXPECT_EQ(child.out, "");
  EXPECT_EQ(child.err, "platform_tests: error: 2\nplatform_tests: warning: 3\n");
}

TEST(Warning, IsAMessageOfLevelThreeWithItsNewline) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    Warning("Failed opening %s", "/dev/null");
    Warning("with its own\n");
  });
  EXPECT_EQ(withoutPids(child.out),
            "warning bootforge[PID]: Failed opening /dev/null\n"
            "warning bootforge[PID]: with its own\n");
}

TEST(Panic, LogsAtLevelTwoTellsStandardErrorAndAborts) {
  Finished child = runInChild([] {
    logToStdoutPlainly();
    signal(SIGABRT, SIG_DFL);
    Panic("VERIFY %s:%d\n", "DaemonPlugin", 86);
  });
  EXPECT_TRUE(WIFSIGNALED(child.status));
  EXPECT_EQ(WTERMSIG(child.status), SIGABRT);
  EXPECT_EQ(withoutPids(child.out), "error bootforge[PID]: VERIFY DaemonPlugin:86\n");
  EXPECT_EQ(child.err, "VERIFY DaemonPlugin:86\n");
}

std::string safeFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string safeFormat(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* text = Str_SafeVasprintf(format, arguments);
  va_end(arguments);
  std::string copy = text;
  free(text);
  return copy;
}

TEST(SafeVasprintf, FormatsTextsOfAnyLength) {
  EXPECT_EQ(safeFormat("%s %d", "a", 1), "a 1");
  EXPECT_EQ(safeFormat("%s", std::string(100'000, 'y').c_str()), std::string(100'000, 'y'));
  EXPECT_EQ(safeFormat("%s", ""), "");
}

TEST(SafeVasprintf, AbortsRatherThanReturnNull) {
  Finished child = runInChild([] {
    signal(SIGABRT, SIG_DFL);
    safeFormat("%ls", L"\x1f600");  // no text of the C locale
  });
  EXPECT_TRUE(WIFSIGNALED(child.status) && WTERMSIG(child.status) == SIGABRT) << child.status;
}

}  // namespace
}  // namespace bootforge::test
