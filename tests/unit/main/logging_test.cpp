// Setting up the host's logging library.
#include "main/logging.h"

#include <unistd.h>

#include <cstdio>

#include "tests/unit/main/program.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class Logging : public ProgramTest {
 protected:
  /// Sets logging up in a process of its own; the status is the number of dictionaries left.
  static Outcome setUp(const char* identity = "bootforge") {
    return inChild([identity] {
      initialiseLogging(identity);
      return doubles::liveDictionaries();
    });
  }

  /// What the set-up says to the library, up to the given call.
  static std::vector<doubles::Record> firstCalls(std::size_t count) {
    std::vector<doubles::Record> calls = logSetUp();
    calls.resize(count);
    return calls;
  }
};

TEST_F(Logging, TwoOutputsAreSetUp) {
  const Outcome outcome = setUp();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_THAT(
      doubles::records(),
      ElementsAre(
          doubles::logSetup("Log_SetProductInfo double 1.0 build-1 test"),
          doubles::logSetup("Log_InitWithSyslogInt bootforge {log.syslogID=bootforge, "
                            "log.syslogLevel=info} 0"),
          doubles::logSetup("Log_NewStdioOutput bootforge {log.stdoutLevel=info, "
                            "log.useTimeStamps.stdio=true, log.useMilliseconds.stdio=true} 0"),
          doubles::logSetup("Log_AddOutput"), doubles::logSetup("Log_SetStderrLevel 0 -1")));
}

TEST_F(Logging, TheIdentityIsTheCallers) {
  setUp("other");
  const std::vector<doubles::Record> all = doubles::records();
  ASSERT_EQ(all.size(), 5U);
  EXPECT_EQ(all[1].text,
            "Log_InitWithSyslogInt other {log.syslogID=other, log.syslogLevel=info} 0");
}

TEST_F(Logging, WithoutSyslogTheSetUpEndsThere) {
  doubles::script().logInitSucceeds = false;
  const Outcome outcome = setUp();
  EXPECT_EQ(outcome.status, 0) << "a dictionary was not freed";
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "Failed to initialize logging to syslog.\n");
  EXPECT_THAT(doubles::records(), ElementsAreArray(firstCalls(2)));
}

TEST_F(Logging, WithoutAStandardOutputTheSetUpEndsThere) {
  doubles::script().logNewOutputSucceeds = false;
  const Outcome outcome = setUp();
  EXPECT_EQ(outcome.status, 0) << "a dictionary was not freed";
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "Failed creating standard out logging interface.\n");
  EXPECT_THAT(doubles::records(), ElementsAreArray(firstCalls(3)));
}

TEST_F(Logging, AnOutputThatCannotBeAddedEndsTheSetUpThere) {
  doubles::script().logAddOutputSucceeds = false;
  const Outcome outcome = setUp();
  EXPECT_EQ(outcome.status, 0) << "a dictionary was not freed";
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "Failed adding standard out logging interface.\n");
  EXPECT_THAT(doubles::records(), ElementsAreArray(firstCalls(4)));
}

TEST_F(Logging, AFailedSetUpDoesNotStopTheProgram) {
  doubles::script().logInitSucceeds = false;
  const Outcome outcome = bootforge({"--plugin=README"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "Failed to initialize logging to syslog.\n");
  EXPECT_THAT(events(), testing::Contains(doubles::logLine(
                            3, "ignoring plugin 'README' of unspecified type...\n")));
}

TEST_F(Logging, StandardOutputIsFlushedAndThenNotBuffered) {
  const Outcome outcome = inChild([]() -> int {
    std::setvbuf(stdout, nullptr, _IOFBF, 4096);
    std::fputs("before", stdout);
    initialiseLogging("bootforge");
    std::fputs(" after", stdout);
    ::_exit(0);  // what is still buffered is lost
  });
  EXPECT_EQ(outcome.out, "before after");
}

}  // namespace
}  // namespace bootforge::test
