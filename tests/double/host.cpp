// The kernel control library, the configuration store and the processor count of the double.
#include <utility>

#include "platform/config_store.h"
#include "platform/host_kernel.h"
#include "platform/hvkctl.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"

using bootforge::doubles::append;
using bootforge::doubles::Hook;
using bootforge::doubles::Kind;
using bootforge::doubles::script;

namespace {

void call(const Hook& hook, const std::string& text) {
  if (hook) hook(text);
}

}  // namespace

namespace HvkCtl::Util {

Sysinfo::Sysinfo(std::string node) : node_(std::move(node)) {}
Sysinfo::~Sysinfo() = default;

void Sysinfo::AddInput(const std::string& text) { input_ += text; }

void Sysinfo::Set() {
  call(script().onKernelLog, input_);
  append(Kind::kKernel, 0, node_ == kSystemLogNode ? input_ : "(" + node_ + ") " + input_);
}

}  // namespace HvkCtl::Util

namespace HvkCtl::System {

void SystemInfoImpl::SetSystemAlert(const std::string& text) {
  call(script().onAlert, text);
  append(Kind::kAlert, 0, text);
}

KernelProgressScreenImpl::KernelProgressScreenImpl() = default;
KernelProgressScreenImpl::~KernelProgressScreenImpl() = default;

void KernelProgressScreenImpl::ProgressText(const std::string& text) {
  append(Kind::kProgress, 0, "ProgressText " + text);
}

void KernelProgressScreenImpl::StatusText(const std::string& text) {
  append(Kind::kProgress, 0, "StatusText " + text);
}

void KernelProgressScreenImpl::Step() { append(Kind::kProgress, 0, "Step"); }

}  // namespace HvkCtl::System

namespace HypConfigStore {

void EndAutoConf() {
  call(script().onEndAutoConf, "");
  append(Kind::kConfigStore, 0, "EndAutoConf");
}

void CleanupBootState() {
  call(script().onCleanupBootState, "");
  append(Kind::kConfigStore, 0, "CleanupBootState");
}

}  // namespace HypConfigStore

int HvkSyscall_ProcessorCount(std::uint32_t* count) {
  if (script().processorCountError != 0) return script().processorCountError;
  *count = script().processorCount;
  return 0;
}
