// A native plugin in C++: writes down which host this is and what it is made of, anew for each
// version of the plugin, and under the host's profile into the place that the profile's tools read.

#include <bootforge/plugin.h>
#include <sys/utsname.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

void writeInventory(const std::filesystem::path& path) {
  std::filesystem::create_directories(path.parent_path());
  utsname system{};
  if (::uname(&system) != 0) throw std::runtime_error("uname failed");
  std::ofstream file(path);
  file << "host: " << system.nodename << '\n';
  file << "kernel: " << system.sysname << ' ' << system.release << '\n';
  file << "processors: " << std::thread::hardware_concurrency() << '\n';
  std::ifstream memory("/proc/meminfo");
  for (std::string line; std::getline(memory, line);) {
    if (line.starts_with("MemTotal:")) file << "memory: " << line.substr(9) << '\n';
  }
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

// An entry is called from C: whatever is thrown ends here.
int run(const char* path) noexcept {
  try {
    writeInventory(path);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "inventory: %s\n", error.what());
    return 1;
  }
}

int start() { return run("/var/lib/nimbus/inventory"); }

int applyHostProfile() { return run("/var/lib/nimbus/profile/inventory"); }

constexpr const char* kRequires[] = {"identity-ready", "storage-ready", nullptr};
constexpr const char* kProvides[] = {"inventory-written", nullptr};
constexpr const char* kDisablingFlags[] = {"no-inventory", nullptr};

}  // namespace

// Version 4: boot flags and the run-once mark, and an entry for hosts with a profile.
extern "C" {

BOOTFORGE_EXPORT extern const bootforge_metadata metadata = {
    .api_version = 4,
    .requires_ = kRequires,
    .provides = kProvides,
    .plugin_version = "1.0",
    .run_once = true,
    .required_flags = nullptr,
    .disabling_flags = kDisablingFlags,
};

BOOTFORGE_EXPORT extern const bootforge_operations operations = {
    .start = start,
    .apply_host_profile = applyHostProfile,
};

}  // extern "C"
