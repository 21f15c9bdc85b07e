#include "tests/support/supervisor.h"

#include <dirent.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <vector>

namespace bootforge::test {
namespace {

namespace fs = std::filesystem;

constexpr int kGraceSeconds = 5;

struct Child {
  pid_t pid;
  std::string name;
};

/// The processes whose parent we are, by a look through /proc.
std::vector<Child> children() {
  std::vector<Child> found;
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", ignored)) {
    std::ifstream file(entry.path() / "stat");
    std::string line;
    std::getline(file, line);
    // pid (name) state parent ...; the name may hold anything, a bracket too.
    std::size_t open = line.find('(');
    std::size_t close = line.rfind(") ");
    if (open == std::string::npos || close == std::string::npos) continue;
    char state = 0;
    int parent = 0;
    if (std::sscanf(line.c_str() + close + 2, "%c %d", &state, &parent) != 2) continue;
    if (parent == getpid() && state != 'Z') {
      found.push_back({std::atoi(line.c_str()), line.substr(open + 1, close - open - 1)});
    }
  }
  return found;
}

/// As waitpid(2), which tests let fail: a failure meant for one of their processes is not for us.
pid_t await(pid_t child, int* status, int options) {
  return wait4(child, status, options, nullptr);
}

/// Reaps what has ended. The status of `child` is stored when it was among them.
void reap(pid_t child, std::optional<int>& childStatus) {
  int status = 0;
  for (pid_t pid; (pid = await(-1, &status, WNOHANG)) > 0;) {
    if (pid == child) childStatus = status;
  }
}

/// Waits for the orphans that were handed to us. True when all ended by themselves.
bool collectOrphans(const sigset_t& signals) {
  std::optional<int> none;
  timespec start{};
  clock_gettime(CLOCK_MONOTONIC, &start);
  for (timespec now = start; now.tv_sec - start.tv_sec < kGraceSeconds;
       clock_gettime(CLOCK_MONOTONIC, &now)) {
    reap(0, none);
    if (await(-1, nullptr, WNOHANG) < 0) return true;
    timespec patience{1, 0};
    sigtimedwait(&signals, nullptr, &patience);
  }
  bool clean = true;
  // Each one that ends may hand its own children to us.
  for (std::vector<Child> left; !(left = children()).empty();) {
    for (const Child& child : left) {
      std::fprintf(stderr, "scratch root: the tests left process %d (%s) behind\n", child.pid,
                   child.name.c_str());
      kill(child.pid, SIGKILL);
      await(child.pid, nullptr, 0);
    }
    clean = false;
  }
  reap(0, none);
  return clean;
}

/// Directories that their owner may not enter would stop the removal for anybody but root.
void unlockDirectories(const fs::path& directory) {
  chmod(directory.c_str(), 0700);
  std::error_code ignored;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, ignored)) {
    if (entry.symlink_status(ignored).type() == fs::file_type::directory) {
      unlockDirectories(entry.path());
    }
  }
}

[[noreturn]] void supervise(pid_t child, const std::string& directory, const sigset_t& signals) {
  std::optional<int> status;
  for (reap(child, status); !status; reap(child, status)) {
    int signal = sigwaitinfo(&signals, nullptr);
    if (signal > 0 && signal != SIGCHLD) kill(child, SIGKILL);
  }
  bool clean = collectOrphans(signals);
  if (geteuid() != 0) unlockDirectories(directory);
  std::error_code error;
  fs::remove_all(directory, error);
  if (error) {
    std::fprintf(stderr, "scratch root: %s: %s\n", directory.c_str(), error.message().c_str());
    clean = false;
  }
  if (WIFSIGNALED(*status)) {
    std::fprintf(stderr, "scratch root: the tests were killed by signal %d\n", WTERMSIG(*status));
    std::_Exit(128 + WTERMSIG(*status));
  }
  int code = WEXITSTATUS(*status);
  std::_Exit(code == 0 && !clean ? EXIT_FAILURE : code);
}

}  // namespace

void superviseChild(const std::string& directory, void (*prepare)()) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  for (int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, &before);
  // Orphans of the tests become our children, so that none outlives the run unseen.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::fflush(nullptr);
  pid_t parent = getpid();
  pid_t child = fork();
  if (child < 0) {
    std::perror("scratch root: fork");
    rmdir(directory.c_str());
    std::_Exit(EXIT_FAILURE);
  }
  if (child > 0) supervise(child, directory, signals);
  prepare();
  // After the namespaces: a change of credentials clears it.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) std::_Exit(EXIT_FAILURE);
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace bootforge::test
