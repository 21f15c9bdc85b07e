#include "plugins/native_plugin.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "bootforge/plugin.h"
#include "main/run_options.h"
#include "platform/spawn.h"
#include "plugins/exceptions.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

constexpr const char* kNativeExecutor = "/usr/lib/nimbus/bootforge/nativeExecutor";

struct CloseObject {
  void operator()(void* object) const { ::dlclose(object); }
};
using SharedObject = std::unique_ptr<void, CloseObject>;

SharedObject load(const std::string& path) {
  // The loader would wait for the other end of a FIFO.
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    throw InvalidPluginException(
        path, path + ": cannot open shared object file: " + systemErrorText(ENXIO));
  }
  ::dlerror();
  SharedObject object(::dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL));
  if (!object) throw InvalidPluginException(path, ::dlerror());
  return object;
}

template <typename Record>
const Record& symbol(const SharedObject& object, const char* name, const std::string& path) {
  ::dlerror();
  const void* const address = ::dlsym(object.get(), name);
  const char* error = ::dlerror();
  if (error == nullptr && address == nullptr) error = "symbol has no address";
  if (error != nullptr) {
    throw Exception(std::string("Failed loading symbol: ") + name + " Located at: " + path +
                    " Reason: " + error);
  }
  return *static_cast<const Record*>(address);
}

/// Calls `take` with each name of an array that ends in null, or is null.
template <typename Take>
void forEachName(const char* const* names, Take take) {
  if (names == nullptr) return;
  for (; *names != nullptr; ++names) take(*names);
}

std::string statusText(int status) {
  char buffer[512];
  return HvkuserStatus_CodeToString(status, buffer, sizeof buffer);
}

struct DestroyActions {
  void operator()(HvkuserSpawnFileActions* actions) const {
    HvkuserCompat_SpawnFileActionsDestroy(actions);
  }
};

/// Starts the native executor on our own standard streams. Throws Exception with the reason.
pid_t spawn(char* const arguments[]) {
  HvkuserSpawnFileActions* made = nullptr;
  if (const int status = HvkuserCompat_SpawnFileActionsInit(&made, 3); status != 0) {
    throw Exception("failed to init file actions: " + statusText(status));
  }
  const std::unique_ptr<HvkuserSpawnFileActions, DestroyActions> actions(made);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const int status = HvkuserCompat_SpawnFileActionsAddDup2(made, stream, stream);
    if (status != 0) throw Exception("failed to add dup2 file actions" + statusText(status));
  }
  pid_t child = -1;
  const int status = HvkuserCompat_Spawn(&child, arguments[0], made, nullptr, arguments,
                                         RunOptions::instance().environment);
  if (status != 0) throw Exception("failed to spawn: " + statusText(status));
  return child;
}

/// How an executor that did not succeed is told of; empty for success.
std::string judge(int status) {
  if (WIFEXITED(status)) {
    const int code = WEXITSTATUS(status);
    return code == 0 ? "" : "exited with code " + std::to_string(code);
  }
  if (WIFSIGNALED(status)) return "exited with signal: " + std::to_string(WTERMSIG(status));
  return "exited: <unknown failure>";
}

}  // namespace

NativePlugin::NativePlugin(std::string name, const std::string& path)
    : Plugin(std::move(name)), path_(path) {
  const SharedObject object = load(path);
  const auto& operations = symbol<bootforge_operations>(object, "operations", path);
  // The first four bytes are all that may be looked at until the version is known.
  const auto& metadata = symbol<bootforge_metadata>(object, "metadata", path);
  hasApplyHostProfile_ = operations.apply_host_profile != nullptr;
  apiVersion_ = metadata.api_version;
  if (apiVersion_ < 1 || apiVersion_ > 4) {
    throw InvalidPluginException(path, "Unsupported API version");
  }
  forEachName(metadata.provides, [this](const char* milestone) { provide(milestone); });
  forEachName(metadata.requires_, [this](const char* milestone) { require(milestone); });
  if (apiVersion_ < 3) return;
  forEachName(metadata.required_flags, [this](const char* flag) { requiredFlags_.insert(flag); });
  forEachName(metadata.disabling_flags, [this](const char* flag) { disablingFlags_.insert(flag); });
  // Not every author writes C: a byte that is neither 0 nor 1 is no bool to be read as one.
  runOnce_ = reinterpret_cast<const unsigned char&>(metadata.run_once) != 0;
  if (metadata.plugin_version != nullptr) pluginVersion_ = metadata.plugin_version;
}

void NativePlugin::start() { runEntry("start"); }

bool NativePlugin::supportsApplyHostProfile() const {
  return apiVersion_ > 1 && hasApplyHostProfile_;
}

void NativePlugin::applyHostProfile() {
  if (!supportsApplyHostProfile()) throw NotImplementedException("NativePlugin::ApplyHostProfile");
  runEntry("apply_host_profile");
}

void NativePlugin::runEntry(const char* method) const {
  char* const arguments[] = {const_cast<char*>(kNativeExecutor), const_cast<char*>(path_.c_str()),
                             const_cast<char*>(name().c_str()), const_cast<char*>(method), nullptr};
  std::string failure;
  try {
    const pid_t child = spawn(arguments);
    int status = 0;
    failure = retryInterrupted([&] { return ::waitpid(child, &status, 0); }) == -1
                  ? "failed to read exit status"
                  : judge(status);
  } catch (const Exception& error) {
    failure = error.what();
  }
  if (!failure.empty()) throw MethodFailedException(name(), method, failure);
}

}  // namespace bootforge
