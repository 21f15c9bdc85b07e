// The host's kernel control library.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace HostCtl::Lib {

/// What a failing operation of the control library throws.
class HostCtlException : public std::exception {
 public:
  explicit HostCtlException(std::string description) : description_(std::move(description)) {}
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  std::string description_;
};

}  // namespace HostCtl::Lib

namespace HvkCtl::Util {

/// The kernel's system-log node, as a file below the control library's tree.
inline constexpr const char* kSystemLogNode = "system/log";

/// A node of the kernel's control tree that takes input.
class Sysinfo {
 public:
  explicit Sysinfo(std::string node);
  ~Sysinfo();
  Sysinfo(const Sysinfo&) = delete;
  Sysinfo& operator=(const Sysinfo&) = delete;

  void AddInput(const std::string& text);
  /// Hands the input to the kernel, in one write. Throws HostCtlException.
  void Set();

 private:
  std::string node_;
  std::string input_;
};

}  // namespace HvkCtl::Util

namespace HvkCtl::System {

class SystemInfoImpl {
 public:
  /// Raises an alert for the host's operator. Throws HostCtlException.
  void SetSystemAlert(const std::string& text);
};

/// A handle to the status line that the console shows while the host boots. Quiet without a
/// console; nothing here throws.
class KernelProgressScreenImpl {
 public:
  KernelProgressScreenImpl();
  ~KernelProgressScreenImpl();
  KernelProgressScreenImpl(const KernelProgressScreenImpl&) = delete;
  KernelProgressScreenImpl& operator=(const KernelProgressScreenImpl&) = delete;

  void ProgressText(const std::string& text);
  void StatusText(const std::string& text);
  /// Advances the screen by one step.
  void Step();
};

}  // namespace HvkCtl::System
