#include "plugins/native_plugin.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "main/run_options.h"
#include "platform/spawn.h"
#include "plugins/exceptions.h"
#include "plugins/native_loader.h"
#include "util/system_error.h"

namespace bootforge {
namespace {

constexpr const char* kNativeExecutor = BOOTFORGE_HELPER_DIR "/nativeExecutor";

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

NativePlugin::NativePlugin(std::string name, const std::string& path, BarrierRegistry& barriers)
    : NativePlugin(std::move(name), path, loadNativeRecord(path), barriers) {}

NativePlugin::NativePlugin(std::string name, const std::string& path, const NativeRecord& record,
                           BarrierRegistry& barriers)
    : Plugin(std::move(name)), hasApplyHostProfile_(record.hasApplyHostProfile), path_(path) {
  apiVersion_ = record.apiVersion;
  for (const std::string& milestone : record.provides) provide(barriers, milestone);
  for (const std::string& milestone : record.requires_) require(barriers, milestone);
  requiredFlags_.insert(record.requiredFlags.begin(), record.requiredFlags.end());
  disablingFlags_.insert(record.disablingFlags.begin(), record.disablingFlags.end());
  runOnce_ = record.runOnce;
  pluginVersion_ = record.pluginVersion;
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
