#include "bench/fresh_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "util/system_error.h"
#include "util/unique_fd.h"

namespace bootforge::bench {
namespace {

[[noreturn]] void giveUp(const char* what) {
  std::fprintf(stderr, "benchmark: %s: %s\n", what, systemErrorText(errno).c_str());
  std::exit(EXIT_FAILURE);
}

}  // namespace

double inFreshProcess(const std::function<void()>& prepare, const std::function<void()>& work) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) giveUp("pipe");
  UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const pid_t child = ::fork();
  if (child == -1) giveUp("fork");
  if (child == 0) {
    prepare();
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    const double seconds = spent.count();
    // The end of the child frees what the work has built, outside the measured time.
    ::_exit(::write(writer.get(), &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
  }
  writer.reset();
  double seconds = 0;
  if (::read(reader.get(), &seconds, sizeof seconds) != sizeof seconds) giveUp("measuring child");
  if (::waitpid(child, nullptr, 0) == -1) giveUp("waitpid");
  return seconds;
}

void timeInFreshProcesses(benchmark::State& state, const std::function<void()>& prepare,
                          const std::function<void()>& work) {
  double best = 1e9;
  while (state.KeepRunning()) {
    const double seconds = inFreshProcess(prepare, work);
    state.SetIterationTime(seconds);
    best = std::min(best, seconds);
  }
  state.counters["ns_each"] = best * 1e9 / static_cast<double>(state.range(0));
}

}  // namespace bootforge::bench
