// Runs one entry of a native plugin in a process of its own: nativeExecutor SO NAME METHOD.
//
// Exits with 0 when the entry returned 0, otherwise with the low byte of what it returned, or 1
// where that byte is 0; with 127 and one line on standard error when the entry could not be called.

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "bootforge/plugin.h"

namespace {

constexpr int kNotCalled = 127;

// Without the standard streams, which would cost more than the rest of this program.
void write(const char* text) {
  for (std::size_t left = std::strlen(text); left > 0;) {
    const ssize_t count = ::write(STDERR_FILENO, text, left);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    text += count;
    left -= static_cast<std::size_t>(count);
  }
}

int refuse(const char* plugin, const char* reason) {
  write("nativeExecutor: ");
  write(plugin);
  write(": ");
  write(reason);
  write("\n");
  return kNotCalled;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return refuse("usage", "nativeExecutor SHARED-OBJECT NAME METHOD");
  const char* const path = argv[1];
  const char* const name = argv[2];
  const char* const method = argv[3];

  void* const object = ::dlopen(path, RTLD_NOW | RTLD_GLOBAL);
  if (object == nullptr) return refuse(name, ::dlerror());
  ::dlerror();
  const auto* const operations =
      static_cast<const bootforge_operations*>(::dlsym(object, "operations"));
  if (const char* const error = ::dlerror(); error != nullptr) return refuse(name, error);
  if (operations == nullptr) return refuse(name, "symbol operations has no address");

  bootforge_entry entry = nullptr;
  if (std::strcmp(method, "start") == 0) {
    entry = operations->start;
  } else if (std::strcmp(method, "apply_host_profile") == 0) {
    entry = operations->apply_host_profile;
  } else {
    return refuse(name, "unknown method");
  }
  if (entry == nullptr) return refuse(name, "no entry for the method");

  const int result = entry();
  if (result == 0) return 0;
  const int code = result & 0xff;
  return code != 0 ? code : 1;
}
