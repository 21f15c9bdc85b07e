#include "tests/double/recorder.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "tests/double/script.h"

namespace bootforge::doubles {
namespace {

struct Head {
  std::uint32_t length;
  Kind kind;
  int level;
  pid_t process;
};

/// The shared list. Its lock is shared as well: a child that was forked while another thread held
/// it waits for that thread, and the lock of a killed process is taken over.
struct Shared {
  pthread_mutex_t mutex;
  std::atomic<std::uint32_t> version;  // counts the changes; sleepers wait for it to move
  std::atomic<bool> on;
  std::size_t used;  // bytes in `bytes`; moved on only when a record is complete
  char bytes[1];
};

constexpr std::size_t kMappingSize = std::size_t{1} << 28;  // touched pages only take memory
constexpr std::size_t kCapacity = kMappingSize - sizeof(Shared);

Shared* mapShared() {
  void* memory = ::mmap(nullptr, kMappingSize, PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) {
    std::perror("recorder: mmap");
    std::abort();
  }
  auto* made = new (memory) Shared{};
  made->on = true;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutex_init(&made->mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return made;
}

Shared& shared() {
  static Shared* const list = mapShared();
  return *list;
}

// Mapped before main, so that every child has it, also one that is forked before the first record.
[[maybe_unused]] const Shared& mappedEarly = shared();

class SharedLock {
 public:
  SharedLock() {
    if (pthread_mutex_lock(&shared().mutex) == EOWNERDEAD) {
      pthread_mutex_consistent(&shared().mutex);
    }
  }
  ~SharedLock() { pthread_mutex_unlock(&shared().mutex); }
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;
};

/// Calls `visit` with each record's head and text.
template <typename Visit>
void visitRecords(Visit visit) {
  const SharedLock lock;
  for (std::size_t at = 0; at < shared().used;) {
    Head head;
    std::memcpy(&head, shared().bytes + at, sizeof head);
    visit(head, std::string(shared().bytes + at + sizeof head, head.length));
    at += sizeof head + head.length;
  }
}

const char* nameOf(Kind kind) {
  switch (kind) {
    case Kind::kLog:
      return "log";
    case Kind::kSyslog:
      return "syslog";
    case Kind::kKernel:
      return "kernel";
    case Kind::kAlert:
      return "alert";
    case Kind::kProgress:
      return "progress";
    case Kind::kConfigStore:
      return "config store";
    case Kind::kLogSetup:
      return "log set-up";
    case Kind::kCli:
      return "cli";
  }
  return "?";
}

Record make(Kind kind, int level, std::string text) {
  return Record{kind, level, std::move(text), 0};
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Record& record) {
  stream << nameOf(record.kind) << ' ' << record.level << " \"";
  for (const char character : record.text) {
    if (character == '\n') {
      stream << "\\n";
    } else {
      stream << character;
    }
  }
  return stream << "\" (process " << record.process << ')';
}

Record logLine(int level, std::string text) { return make(Kind::kLog, level, std::move(text)); }
Record syslogLine(int priority, std::string text) {
  return make(Kind::kSyslog, priority, std::move(text));
}
Record kernelLine(std::string text) { return make(Kind::kKernel, 0, std::move(text)); }
Record alert(std::string text) { return make(Kind::kAlert, 0, std::move(text)); }
Record progress(std::string text) { return make(Kind::kProgress, 0, std::move(text)); }
Record configStore(std::string text) { return make(Kind::kConfigStore, 0, std::move(text)); }
Record logSetup(std::string text) { return make(Kind::kLogSetup, 0, std::move(text)); }
Record cli(std::string text) { return make(Kind::kCli, 0, std::move(text)); }

std::vector<Record> records() {
  std::vector<Record> result;
  visitRecords([&](const Head& head, std::string text) {
    result.push_back(Record{head.kind, head.level, std::move(text), head.process});
  });
  return result;
}

std::vector<Record> records(std::initializer_list<Kind> kinds) {
  std::vector<Record> result = records();
  std::erase_if(result, [&](const Record& record) {
    return std::find(kinds.begin(), kinds.end(), record.kind) == kinds.end();
  });
  return result;
}

bool waitForRecord(const Record& record, int count, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const std::uint32_t seen = shared().version.load();
    const std::vector<Record> all = records();
    if (std::count(all.begin(), all.end(), record) >= count) return true;
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= left.zero()) return false;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timespec patience{};
    patience.tv_sec = seconds.count();
    patience.tv_nsec = std::chrono::nanoseconds(left - seconds).count();
    // No private futex: the waker may be another process.
    ::syscall(SYS_futex, &shared().version, FUTEX_WAIT, seen, &patience, nullptr, 0);
  }
}

void reset() {
  {
    const SharedLock lock;
    shared().used = 0;
    shared().on = true;
  }
  script() = Script{};
}

void betweenRecords(const std::function<void()>& action) {
  const SharedLock lock;
  action();
}

void append(Kind kind, int level, const std::string& text) {
  if (!shared().on.load(std::memory_order_relaxed)) return;
  const int savedError = errno;
  {
    const SharedLock lock;
    const Head head{static_cast<std::uint32_t>(text.size()), kind, level, ::getpid()};
    if (shared().used + sizeof head + text.size() > kCapacity) {
      std::fputs("recorder: no room for another record\n", stderr);
      std::abort();
    }
    std::memcpy(shared().bytes + shared().used, &head, sizeof head);
    std::memcpy(shared().bytes + shared().used + sizeof head, text.data(), text.size());
    shared().used += sizeof head + text.size();
  }
  shared().version.fetch_add(1);
  ::syscall(SYS_futex, &shared().version, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  errno = savedError;
}

void setRecording(bool on) { shared().on = on; }

}  // namespace bootforge::doubles
