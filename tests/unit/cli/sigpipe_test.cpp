#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <vector>

#include "cli/hypcli_executor.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"

namespace bootforge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What was seen in a process that asked for the executor object for the first time.
struct Sight {
  bool ignoresSigpipe;
  std::vector<doubles::Record> records;
};

Sight firstInstance(bool settingFails) {
  doubles::reset();
  doubles::resetFaults();
  ::signal(SIGPIPE, SIG_DFL);
  if (settingFails) doubles::failCall("signal", {.error = EINVAL});
  const pid_t child = ::fork();
  if (child == 0) {
    HypcliExecutor::instance();
    HypcliExecutor::instance();
    doubles::resetFaults();
    struct sigaction action {};
    ::sigaction(SIGPIPE, nullptr, &action);
    ::_exit(action.sa_handler == SIG_IGN ? 1 : 0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  Sight sight{WEXITSTATUS(status) == 1, doubles::records()};
  doubles::resetFaults();
  return sight;
}

/// Looks before any test of this program has made the object, which lives as long as its process.
class FirstInstances : public testing::Environment {
 public:
  void SetUp() override {
    normal = firstInstance(false);
    refused = firstInstance(true);
  }

  static inline Sight normal;
  static inline Sight refused;
};

[[maybe_unused]] const testing::Environment* const registered =
    testing::AddGlobalTestEnvironment(new FirstInstances);

TEST(Sigpipe, IsIgnoredFromTheFirstInstanceOn) {
  EXPECT_TRUE(FirstInstances::normal.ignoresSigpipe);
  EXPECT_THAT(FirstInstances::normal.records, IsEmpty());
}

TEST(Sigpipe, ThatItCannotBeIgnoredIsLoggedOnceAndStopsNothing) {
  EXPECT_FALSE(FirstInstances::refused.ignoresSigpipe);
  EXPECT_THAT(FirstInstances::refused.records,
              ElementsAre(doubles::logLine(3, "Bootforge cannot ignore SIGPIPE\n")));
}

}  // namespace
}  // namespace bootforge
