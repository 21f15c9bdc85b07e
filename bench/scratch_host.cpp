#include "bench/scratch_host.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <thread>

#include "util/system_error.h"
#include "util/unique_fd.h"

namespace bootforge::bench {
namespace {

constexpr const char* kMarker = "/bench/this-is-a-scratch-host";
constexpr const char* kSyslogSocket = "/dev/log";
constexpr const char* kKernelLog = "/dev/kmsg";

UniqueFd openSyslogSocket() {
  ::unlink(kSyslogSocket);
  UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string_view(kSyslogSocket).copy(address.sun_path, sizeof address.sun_path - 1);
  if (!socket ||
      ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    giveUp(kSyslogSocket);
  }
  return socket;
}

UniqueFd openKernelLog() {
  ::unlink(kKernelLog);
  if (::mkfifo(kKernelLog, 0600) != 0) giveUp(kKernelLog);
  UniqueFd fifo(::open(kKernelLog, O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!fifo) giveUp(kKernelLog);
  return fifo;
}

void readAway(const UniqueFd& file) {
  char buffer[65536];
  while (::read(file.get(), buffer, sizeof buffer) > 0) {
  }
}

/// A syslog daemon is woken for each message. The kernel's log is memory, to which a message is
/// added whether somebody reads it or not; so that one is looked at now and then.
[[noreturn]] void drain(const UniqueFd& syslog, const UniqueFd& kernelLog) {
  constexpr int kNowAndThen = 5;  // milliseconds
  pollfd watched{syslog.get(), POLLIN, 0};
  for (;;) {
    ::poll(&watched, 1, kNowAndThen);
    readAway(syslog);
    readAway(kernelLog);
  }
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

void giveUp(const std::string& what) {
  std::fprintf(stderr, "benchmark: %s: %s\n", what.c_str(), systemErrorText(errno).c_str());
  std::exit(EXIT_FAILURE);
}

void writeHostFile(const std::string& path, const std::string& text) {
  boost::filesystem::create_directories(boost::filesystem::path(path).parent_path());
  std::ofstream file(path, std::ios::trunc);
  file << text;
  if (!file.flush()) giveUp(path);
}

void enterScratchHost() {
  if (::access(kMarker, F_OK) != 0) {
    std::fprintf(stderr, "benchmark: this one runs in the scratch host that bench/run makes\n");
    std::exit(EXIT_FAILURE);
  }
  writeHostFile("/usr/lib/nimbus/hypcli/bench.json",
                R"({"namespace": "bench", "commands": {"true": {"exec": ["/bin/true"]}}})");
  std::thread([syslog = openSyslogSocket(), kernelLog = openKernelLog()] {
    drain(syslog, kernelLog);
  }).detach();
}

Ended runToEnd(const char* const words[], const char* output) {
  // Executors daemonise; their end comes down to us.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const auto start = std::chrono::steady_clock::now();
  // fork and no quicker call: the child of those would start with our own peak for its own.
  const pid_t first = ::fork();
  if (first == -1) giveUp("fork");
  if (first == 0) {
    const int file = ::open(output, O_WRONLY | O_CREAT | O_APPEND, 0644);
    ::dup2(file, STDOUT_FILENO);
    ::dup2(file, STDERR_FILENO);
    ::execv(words[0], const_cast<char* const*>(words));
    ::_exit(127);
  }
  Ended ended;
  for (;;) {
    int status = 0;
    rusage usage{};
    const pid_t pid = ::wait4(-1, &status, 0, &usage);
    if (pid == -1) break;
    ended.processor += seconds(usage.ru_utime) + seconds(usage.ru_stime);
    if (pid == first) {
      const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
      ended.seconds = spent.count();
      ended.status = status;
      ended.peakKib = usage.ru_maxrss;
    } else {
      ended.othersPeakKib = std::max(ended.othersPeakKib, usage.ru_maxrss);
    }
  }
  return ended;
}

}  // namespace bootforge::bench
