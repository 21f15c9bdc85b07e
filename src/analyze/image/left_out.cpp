#include "analyze/image/left_out.h"

#include <vector>

namespace bootforge::analyze {
namespace {

std::string listed(const char* one, const char* several, const std::vector<std::string>& flags) {
  std::string text = flags.size() == 1 ? one : several;
  const char* separator = " ";
  for (const std::string& flag : flags) {
    text += separator + flag;
    separator = ", ";
  }
  return text;
}

}  // namespace

std::string reasonLeftOut(const Admission& admission) {
  if (admission.isDenied) return "it is on the deny list";
  std::string reason;
  if (!admission.disabling.empty()) {
    reason = "disabled by the boot " + listed("flag", "flags", admission.disabling);
  }
  if (!admission.missing.empty()) {
    if (!reason.empty()) reason += "; ";
    reason += "missing the required boot " + listed("flag", "flags", admission.missing);
  }
  if (admission.hasRunAlready) {
    reason = "its version '" + admission.plugin->pluginVersion() + "' has already been run";
  }
  return reason;
}

}  // namespace bootforge::analyze
