#include <fcntl.h>

#include <string_view>

#include "platform/hvkctl.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/text.h"

namespace {

using host_linux::Descriptor;
using host_linux::errorText;
using HostCtl::Lib::HostCtlException;

/// The kernel refuses a record of more than 976 bytes, or 1,024 where it is newer. With what stands
/// before and after it, a text of this length fits everywhere.
constexpr std::size_t kMostOfAText = 960;

/// Makes one record of the kernel's log. `prefix` holds the level as the kernel takes it.
void writeRecord(const char* prefix, std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  const std::string record = prefix + host_linux::cutTo(text, kMostOfAText) + '\n';
  // Opened for each message, because the kernel limits the rate of each open file. O_NONBLOCK:
  // where something else stands in the device's place, nothing is waited for.
  Descriptor device(host_linux::uninterrupted(
      [] { return ::open("/dev/kmsg", O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
  if (!device) throw HostCtlException(errorText(errno));
  // One write is one record, whatever lines the text has: nothing in it can forge another record.
  ssize_t written = host_linux::uninterrupted(
      [&] { return ::write(device.get(), record.data(), record.size()); });
  if (written < 0) throw HostCtlException(errorText(errno));
  if (static_cast<std::size_t>(written) < record.size()) throw HostCtlException(errorText(EIO));
}

}  // namespace

namespace HvkCtl::Util {

Sysinfo::Sysinfo(std::string node) : node_(std::move(node)) {}

Sysinfo::~Sysinfo() = default;

void Sysinfo::AddInput(const std::string& text) { input_ += text; }

void Sysinfo::Set() {
  if (node_ != kSystemLogNode) throw HostCtlException(errorText(ENOENT));
  writeRecord("<6>bootforge: ", std::exchange(input_, {}));
}

}  // namespace HvkCtl::Util

namespace HvkCtl::System {

void SystemInfoImpl::SetSystemAlert(const std::string& text) {
  writeRecord("<1>bootforge: ", text);
}

}  // namespace HvkCtl::System
