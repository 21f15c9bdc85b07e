// What the shell of the operator's prompt does to the standard streams, on a terminal of the test's
// own.
#include "graph/troubleshooting_shell.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/pseudo_terminal.h"
#include "tests/unit/graph/terminal_calls.h"
#include "util/unique_fd.h"

namespace bootforge::test {
namespace {

/// A standard stream that is something else for a while.
class Stream {
 public:
  Stream(int stream, int other) : stream_(stream), saved_(::fcntl(stream, F_DUPFD_CLOEXEC, 3)) {
    ::dup2(other, stream);
  }
  ~Stream() { ::dup2(saved_.get(), stream_); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// Whether it is the open file that it was given, and not another one of the same device.
  bool isAsGiven() const { return (::fcntl(stream_, F_GETFL) & O_APPEND) != 0; }
  dev_t device() const {
    struct stat status {};
    EXPECT_EQ(::fstat(stream_, &status), 0);
    return status.st_rdev;
  }

 private:
  const int stream_;
  const UniqueFd saved_;
};

class TroubleshootingShell : public PseudoTerminal {
 protected:
  struct Streams {
    bool isInputAsGiven;
    bool isOutputAsGiven;
    bool isErrorAsGiven;
    bool areInputAndErrorTheTerminal;
  };

  /// Runs a shell that ends at once. Input and error are the terminal; output is another device.
  Streams streamsAfterAShell() const {
    const UniqueFd null(::open("/dev/null", O_WRONLY | O_APPEND | O_CLOEXEC));
    EXPECT_EQ(::fcntl(terminal_, F_SETFL, O_APPEND), 0);
    EXPECT_EQ(::write(master_, "exit\n", 5), 5);
    std::fflush(stdout);
    const Stream input(STDIN_FILENO, terminal_);
    const Stream output(STDOUT_FILENO, null.get());
    const Stream error(STDERR_FILENO, terminal_);
    const dev_t terminal = input.device();
    runTroubleshootingShell();
    return {input.isAsGiven(), output.isAsGiven(), error.isAsGiven(),
            input.device() == terminal && error.device() == terminal};
  }
};

TEST_F(TroubleshootingShell, ThatHungUpItsTerminalLeavesThoseStreamsOpenAgain) {
  terminalCalls() = {.isTerminal = false};
  const Streams streams = streamsAfterAShell();
  EXPECT_FALSE(streams.isInputAsGiven);
  EXPECT_FALSE(streams.isErrorAsGiven);
  EXPECT_TRUE(streams.areInputAndErrorTheTerminal);
  EXPECT_TRUE(streams.isOutputAsGiven) << "which is no terminal";
}

TEST_F(TroubleshootingShell, ThatEndedWellLeavesTheStreamsAlone) {
  terminalCalls() = {.isTerminal = true};
  const Streams streams = streamsAfterAShell();
  EXPECT_TRUE(streams.isInputAsGiven);
  EXPECT_TRUE(streams.isOutputAsGiven);
  EXPECT_TRUE(streams.isErrorAsGiven);
}

}  // namespace
}  // namespace bootforge::test
