#include "tools/launch/call.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kGroupWord = "++group=";
constexpr const char* kOwnName = "launch";
constexpr const char* kUse =
    "call me through a link that has an init script's name: " BOOTFORGE_HELPER_DIR
    "/init.d/NAME ++group=GROUP WORDS... runs /etc/init.d/NAME WORDS... "
    "in that control group (chkconfig --add-launchers makes the links)";

/// No component is empty, "." or "..": the group stays below its place.
bool isGoodGroup(const char* group) {
  for (const char* component = group;; ++component) {
    const std::size_t length = std::strcspn(component, "/");
    const bool isDots = std::strspn(component, ".") == length && length <= 2;
    if (length == 0 || isDots) return false;
    component += length;
    if (*component == '\0') return true;
  }
}

}  // namespace

LaunchCall readLaunchCall(int wordCount, char** words) {
  LaunchCall call;
  const auto refuse = [&call](const char* subject, const char* reason) {
    call.subject = subject;
    call.reason = reason;
    return call;
  };
  const char* const slash = std::strrchr(words[0], '/');
  call.name = slash != nullptr ? slash + 1 : words[0];
  if (wordCount < 2 || std::strncmp(words[1], kGroupWord, std::strlen(kGroupWord)) != 0) {
    if (std::strcmp(call.name, kOwnName) == 0) return refuse("usage", kUse);
    return refuse(call.name, "expected ++group=GROUP as the first word");
  }
  call.group = words[1] + std::strlen(kGroupWord);
  if (!isGoodGroup(call.group)) return refuse(words[1], "not a good group");
  const int length = std::snprintf(call.script, sizeof call.script, "/etc/init.d/%s", call.name);
  if (*call.name == '\0' || length < 0 || static_cast<std::size_t>(length) >= sizeof call.script) {
    return refuse(call.name, kNoSuchScript);
  }
  return call;
}
