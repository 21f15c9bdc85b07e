// Stands between bootforge and an ordinary init script, which expects its word first and knows
// nothing of groups. Called through a link named after the script:
//
//     /usr/lib/nimbus/bootforge/init.d/NAME ++group=GROUP WORDS...
//
// It moves itself into the control group GROUP below /sys/fs/cgroup/bootforge (cgroups(7), version
// 2) and becomes "/etc/init.d/NAME WORDS..." in the same process. Without a writable control group
// it goes on without one. A group or a name that cannot be: one line on standard error and status
// 127. Where standard error is the null device, what is written there goes to the syslog daemon.
// The script has default signal dispositions, no signal blocked, and an umask of 022 at least.

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/default_signals.h"
#include "tools/launch/call.h"
#include "tools/launch/relay.h"

namespace {

constexpr int kNotStarted = 127;
constexpr const char* kControlGroups = "/sys/fs/cgroup";

int refuse(const char* subject, const char* reason) {
  const auto part = [](const char* text) {
    return iovec{const_cast<char*>(text), std::strlen(text)};
  };
  const iovec line[] = {part("launch: "), part(subject), part(": "), part(reason), part("\n")};
  // Nobody is left to tell when this fails.
  [[maybe_unused]] const ssize_t written = ::writev(STDERR_FILENO, line, 5);
  return kNotStarted;
}

/// Joins the group, making what is missing of it. Every failure means: no control groups for us.
void joinGroup(char* group) {
  struct statfs system {};
  if (::statfs(kControlGroups, &system) != 0 || system.f_type != CGROUP2_SUPER_MAGIC) return;
  int folder = ::open(kControlGroups, O_PATH | O_DIRECTORY | O_CLOEXEC);
  char top[] = "bootforge";
  char* rest = group;
  for (char* component = top; component != nullptr && folder >= 0;) {
    ::mkdirat(folder, component, 0755);
    const int next = ::openat(folder, component, O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    ::close(folder);
    folder = next;
    component = rest != nullptr && *rest != '\0' ? strsep(&rest, "/") : nullptr;
  }
  if (folder < 0) return;
  const int processes = ::openat(folder, "cgroup.procs", O_WRONLY | O_CLOEXEC);
  ::close(folder);
  if (processes < 0) return;
  // 0 stands for the writer.
  [[maybe_unused]] const ssize_t written = ::write(processes, "0", 1);
  ::close(processes);
}

bool isNullDevice(int fd) {
  struct stat status {};
  return ::fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
}

/// Whoever calls, by hand or in a boot: the script finds the same.
void takeDefaults() {
  host_linux::defaultSignals();
  constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;
  ::umask(::umask(kOthersWrite) | kOthersWrite);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 1) return kNotStarted;
  LaunchCall call = readLaunchCall(argc, argv);
  if (call.reason != nullptr) return refuse(call.subject, call.reason);
  if (::access(call.script, X_OK) != 0) return refuse(call.name, kNoSuchScript);
  takeDefaults();
  joinGroup(call.group);
  if (isNullDevice(STDERR_FILENO)) relayStandardError(call.name, argc, argv);
  // The script's words follow its name; the group's word makes room for the name.
  argv[1] = call.script;
  ::execv(call.script, argv + 1);
  return refuse(call.script, std::strerror(errno));
}
