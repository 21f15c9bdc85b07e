#include <fcntl.h>

#include <mutex>
#include <string>
#include <utility>

#include "platform/hvkctl.h"
#include "platform/linux/descriptor.h"

namespace {

/// What the console shows. Every handle speaks of the same boot, so there is one for the process.
struct Screen {
  std::mutex mutex;  // guards all that follows
  int steps = 0;
  std::string progress;
  std::string status;
  std::string drawn;  // the line that stands on the console
};

Screen& screen() {
  static Screen& theScreen = *new Screen;  // never destroyed: threads may outlive main
  return theScreen;
}

/// A status line must stay one line, and must not command the terminal.
void appendPrintable(std::string& line, const std::string& text) {
  for (char c : text) {
    bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
    line += control ? ' ' : c;
  }
}

/// Puts the line on the console in one write. Nothing is waited for: a console that takes no more
/// misses a line.
void draw(Screen& shown) {
  std::string line = "\r[" + std::to_string(shown.steps) + "] ";
  appendPrintable(line, shown.progress);
  if (!shown.progress.empty() && !shown.status.empty()) line += ": ";
  appendPrintable(line, shown.status);
  line += '\n';
  if (line == shown.drawn) return;
  // Opened anew for each line: a terminal that was hung up takes nothing from an old descriptor.
  host_linux::Descriptor console(
      ::open("/dev/console", O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!console || !::isatty(console.get())) return;
  if (::write(console.get(), line.data(), line.size()) > 0) shown.drawn = std::move(line);
}

template <typename Change>
void update(Change change) noexcept {
  host_linux::ErrnoKeeper keeper;
  try {
    std::lock_guard lock(screen().mutex);
    change(screen());
    draw(screen());
  } catch (...) {
    // Out of memory: the screen is decoration.
  }
}

}  // namespace

namespace HvkCtl::System {

KernelProgressScreenImpl::KernelProgressScreenImpl() = default;

KernelProgressScreenImpl::~KernelProgressScreenImpl() = default;

void KernelProgressScreenImpl::ProgressText(const std::string& text) {
  update([&text](Screen& shown) { shown.progress = text; });
}

void KernelProgressScreenImpl::StatusText(const std::string& text) {
  update([&text](Screen& shown) { shown.status = text; });
}

void KernelProgressScreenImpl::Step() {
  update([](Screen& shown) { ++shown.steps; });
}

}  // namespace HvkCtl::System
