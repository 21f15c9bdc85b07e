// The poll loop of the double: poll(2) over what was registered and one eventfd. It takes the
// values that the host's library is to be given and no others, and does no more than it promises,
// so that a program which calls it wrongly has no executor.
#include "platform/poll.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "tests/double/recorder.h"
#include "tests/double/script.h"

namespace {

constexpr int kClassSet = 1;
constexpr int kFlags = 21;
constexpr int kReadable = 2;

struct Entry {
  int classSet;
  int flags;
  PollCallback callback;
  void* clientData;
  int eventType;
  int device;

  bool operator==(const Entry&) const = default;
};

std::vector<Entry> entries;   // used by the loop's thread
std::atomic<int> notify{-1};  // the eventfd of Poll_InitDefault; lives as long as the process

}  // namespace

extern "C" {

void Poll_InitDefault() {
  entries.clear();
  notify = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

int Poll_Callback(int classSet, int flags, PollCallback callback, void* clientData, int eventType,
                  int device, void* lock) {
  if (classSet != kClassSet || flags != kFlags || eventType != kReadable || lock != nullptr) {
    return EINVAL;
  }
  if (bootforge::doubles::script().pollCallbackError != 0) {
    return bootforge::doubles::script().pollCallbackError;
  }
  entries.push_back({classSet, flags, callback, clientData, eventType, device});
  return 0;
}

bool Poll_CallbackRemove(int classSet, int flags, PollCallback callback, void* clientData,
                         int eventType) {
  return std::erase_if(entries, [&](const Entry& entry) {
           return entry == Entry{classSet, flags, callback, clientData, eventType, entry.device};
         }) > 0;
}

void Poll_Loop(int classSet, bool* stop, int reserved) {
  bool told = true;  // to look at the flag
  while (classSet == kClassSet && reserved == 0) {
    if (told && *stop) break;
    told = false;
    std::vector<pollfd> waits{{notify, POLLIN, 0}};
    const std::vector<Entry> current = entries;
    for (const Entry& entry : current) waits.push_back({entry.device, POLLIN, 0});
    if (::poll(waits.data(), waits.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (waits[0].revents != 0) {
      std::uint64_t count;
      [[maybe_unused]] const ssize_t drained = ::read(notify, &count, sizeof count);
      told = true;
    }
    for (std::size_t i = 0; i < current.size(); ++i) {
      const bool registered =
          std::find(entries.begin(), entries.end(), current[i]) != entries.end();
      if (waits[i + 1].revents != 0 && registered) current[i].callback(current[i].clientData);
    }
  }
  using namespace bootforge::doubles;
  if (!entries.empty()) append(Kind::kLog, 0, "Poll_Loop ended with a callback registered");
}

void Poll_NotifyChange(int classSet) {
  if (classSet != kClassSet) return;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(notify, &one, sizeof one);
}

}  // extern "C"
