#include "tests/support/scratch_root.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/support/supervisor.h"

namespace bootforge::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDevices[] = {"null", "zero", "full"};
constexpr const char* kApplets[] = {"cat",   "chmod", "cut",  "date", "dd",   "echo", "env",
                                    "false", "grep",  "head", "id",   "kill", "ln",   "ls",
                                    "mkdir", "mv",    "ps",   "pwd",  "rm",   "seq",  "sh",
                                    "sleep", "tail",  "test", "tr",   "true", "wc",   "yes"};

[[noreturn]] void giveUp(int status, const char* what) {
  std::fprintf(stderr, "scratch root: %s: %s\n", what, std::strerror(errno));
  std::_Exit(status);
}

void writeProcFile(const char* path, const std::string& text) {
  int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    giveUp(ScratchRoot::kSkipped, path);
  }
  close(fd);
}

/// Makes mounts of ours invisible to the host and, for an ordinary user, makes us root.
void enterNamespaces() {
  if (geteuid() == 0) {
    // Where this is refused the tests still run; only those that mount something cannot.
    if (unshare(CLONE_NEWNS) == 0) mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    return;
  }
  std::string uid = std::to_string(getuid());
  std::string gid = std::to_string(getgid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    giveUp(ScratchRoot::kSkipped, "no user namespace for an ordinary user");
  }
  writeProcFile("/proc/self/setgroups", "deny");
  writeProcFile("/proc/self/uid_map", "0 " + uid + " 1");
  writeProcFile("/proc/self/gid_map", "0 " + gid + " 1");
}

bool canBeOpened(const std::string& path) {
  int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

/// A real device where that can be had, else the host's bound over an empty file.
void makeDevice(const std::string& root, const std::string& name) {
  std::string host = "/dev/" + name;
  std::string ours = root + host;
  struct stat device {};
  if (stat(host.c_str(), &device) != 0) return;
  if (mknod(ours.c_str(), S_IFCHR | 0666, device.st_rdev) == 0) {
    chmod(ours.c_str(), 0666);
    if (canBeOpened(ours)) return;
    unlink(ours.c_str());
  }
  close(open(ours.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
  mount(host.c_str(), ours.c_str(), nullptr, MS_BIND, nullptr);
}

/// What every test may rely on besides the devices and busybox itself.
void furnish(const std::string& root) {
  for (const char* directory :
       {"/bin", "/bootbank", "/dev", "/etc", "/tmp", "/var/log", "/var/run/nimbus"}) {
    fs::create_directories(root + directory);
  }
  fs::permissions(root + "/tmp", fs::perms::all | fs::perms::sticky_bit);
  for (const char* applet : kApplets) fs::create_symlink("busybox", root + "/bin/" + applet);
}

void build(const std::string& root) {
  umask(022);
  chmod(root.c_str(), 0755);
  furnish(root);
  for (const char* device : kDevices) makeDevice(root, device);
  for (const char* busybox : {"/bin/busybox", "/usr/bin/busybox"}) {
    if (access(busybox, X_OK) != 0) continue;
    // Copied and not linked: no test can damage the host's.
    fs::copy_file(busybox, root + "/bin/busybox");
    return;
  }
  std::fprintf(stderr,
               "scratch root: no busybox on this host; tests that run programs will fail\n");
}

void emptyDirectory(const fs::path& directory, const std::set<std::string>& keep) {
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    if (!keep.contains(entry.path().filename())) fs::remove_all(entry.path());
  }
}

/// Moves the process in and out of the root as the tests come and go.
class Doorkeeper : public testing::EmptyTestEventListener {
 public:
  explicit Doorkeeper(std::string root) : root_(std::move(root)) {}

  void OnTestIterationStart(const testing::UnitTest&, int) override {
    if (chroot(root_.c_str()) != 0 || chdir("/") != 0) giveUp(EXIT_FAILURE, "chroot");
  }

  void OnTestStart(const testing::TestInfo&) override {
    if (chdir("/") != 0) giveUp(EXIT_FAILURE, "chdir");
    emptyDirectory("/", {"bin", "dev"});
    emptyDirectory("/bin", {"busybox"});
    emptyDirectory("/dev", {std::begin(kDevices), std::end(kDevices)});
    furnish("");
  }

  // Listeners hear of an end in reverse order, so the framework's report is written after this.
  void OnTestIterationEnd(const testing::UnitTest&, int) override {
    if (fchdir(outside_) != 0 || chroot(".") != 0) giveUp(EXIT_FAILURE, "leaving the root");
  }

 private:
  const std::string root_;
  const int outside_ = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
};

}  // namespace

void ScratchRoot::enter() {
  if (testing::GTEST_FLAG(list_tests)) return;
  const char* tmp = std::getenv("TMPDIR");
  std::string root = std::string(tmp && *tmp == '/' ? tmp : "/tmp") + "/bootforge-test-XXXXXX";
  if (!mkdtemp(root.data())) giveUp(EXIT_FAILURE, root.c_str());
  superviseChild(root, enterNamespaces);
  build(root);
  testing::UnitTest::GetInstance()->listeners().Append(new Doorkeeper(root));
}

void writeFile(const std::string& path, const std::string& text, mode_t mode) {
  fs::path directory = fs::path(path).parent_path();
  if (!directory.empty()) fs::create_directories(directory);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  EXPECT_TRUE(file) << "cannot write " << path;
  EXPECT_EQ(chmod(path.c_str(), mode), 0) << path;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

bool exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

int countOpenDescriptors() {
  int count = 0;
  for (int fd = 0; fd < 4096; ++fd) count += fcntl(fd, F_GETFD) != -1;
  return count;
}

}  // namespace bootforge::test
