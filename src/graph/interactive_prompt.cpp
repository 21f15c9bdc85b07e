#include "graph/interactive_prompt.h"

#include <fcntl.h>
#include <linux/vt.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <optional>
#include <string_view>

#include "graph/troubleshooting_shell.h"
#include "main/run_options.h"
#include "platform/log.h"
#include "util/system_error.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

constexpr int kPromptTerminal = 1;
constexpr int kBootTerminal = 11;

constexpr int kPlain = 8;  // no colour: resets
constexpr int kUnchosen = 7;
constexpr int kPluginColour = 6;

struct Option {
  char letter;
  std::string_view text;
  int colour;
};
constexpr Option kOptions[] = {
    {'c', "(c)ontinue", 5},
    {'e', "(e)xecute", 2},
    {'t', "(t)roubleshoot", 3},
    {'s', "(s)kip", 1},
};

constexpr std::string_view kHideCursor = "\033[?25l";
constexpr std::string_view kShowCursor = "\033[?25h";
constexpr std::string_view kEraseLine = "\033[2K";

std::string colour(int number) {
  if (number == kPlain) return "\033[0m";
  return "\033[" + std::to_string(30 + number) + "m";
}

/// Writes to standard output at once. A console that does not take it takes no prompt either.
void show(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count =
        retryInterrupted([&] { return ::write(STDOUT_FILENO, text.data(), text.size()); });
    if (count < 0 && errno == EAGAIN) {
      // Somebody who shares the console made it non-blocking; a full one is still waited for.
      pollfd writable{STDOUT_FILENO, POLLOUT, 0};
      ::poll(&writable, 1, -1);
      continue;
    }
    if (count < 0) return;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// The four options on one line, without its end; all in their colours, or the chosen one only.
std::string optionLine(std::optional<char> chosen) {
  std::string line;
  for (const Option& option : kOptions) {
    if (!line.empty()) line += '\t';
    const bool coloured = !chosen || *chosen == option.letter;
    line += colour(coloured ? option.colour : kUnchosen);
    line += option.text;
    line += colour(kPlain);
  }
  return line;
}

void redrawChoice(char letter) { show('\r' + optionLine(letter) + '\n'); }

void switchConsole(int terminal) {
  const UniqueFd console(::open("/dev/console", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!console) return;
  // Only a terminal that cannot be activated is waited for: that is the host's way.
  if (::ioctl(console.get(), VT_ACTIVATE, terminal) != 0) {
    ::ioctl(console.get(), VT_WAITACTIVE, terminal);
  }
}

/// Puts the terminal on standard input into a mode in which single keys are read unseen.
class KeyMode {
 public:
  KeyMode() {
    termios settings{};
    if (::tcgetattr(STDIN_FILENO, &settings) != 0) {
      Log_Level(2, "unable to get terminal io state.\n");
      return;
    }
    saved_ = settings;
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    if (::tcsetattr(STDIN_FILENO, TCSANOW, &settings) != 0) {
      Log_Level(2, "unable to set terminal io state.\n");
    }
  }

  void restore() const {
    if (saved_) {
      termios settings = *saved_;
      settings.c_lflag |= ICANON | ECHO;
      if (::tcsetattr(STDIN_FILENO, TCSANOW, &settings) == 0) return;
    }
    Log_Level(2, "unable to restore terminal io state.\n");
  }

  bool isTerminal() const { return saved_.has_value(); }

 private:
  std::optional<termios> saved_;
};

/// The next of the four letters, in whatever case; everything else is passed over. At the end of
/// input it goes on reading, ten times a second at most: somebody may open the console again.
char readChoice() {
  constexpr int kPauseMilliseconds = 100;
  for (;;) {
    char key = 0;
    const ssize_t count = retryInterrupted([&] { return ::read(STDIN_FILENO, &key, 1); });
    if (count != 1) {
      ::poll(nullptr, 0, kPauseMilliseconds);
      continue;
    }
    key = static_cast<char>(std::tolower(static_cast<unsigned char>(key)));
    for (const Option& option : kOptions) {
      if (key == option.letter) return key;
    }
  }
}

/// Whether plugins that have to run first are, or were until this one, outstanding.
bool isWaitingForOthers(const std::string& pluginName) {
  auto& required = RunOptions::instance().interactiveModeRequires;
  if (required.empty()) return false;
  required.remove(pluginName);
  if (required.empty()) switchConsole(kPromptTerminal);
  return true;
}

}  // namespace

PromptAnswer promptFor(const std::string& pluginName) {
  if (isWaitingForOthers(pluginName)) return PromptAnswer::Activate;

  switchConsole(kPromptTerminal);
  // The next colour ends the name's.
  show("current plugin: " + colour(kPluginColour) + pluginName + '\n' + optionLine({}) +
       std::string(kHideCursor));
  const KeyMode keys;
  const char choice = readChoice();
  keys.restore();
  show(kShowCursor);

  switch (choice) {
    case 's':
      Log_Level(5, "skipping plugin %s (interactive mode request)\n", pluginName.c_str());
      redrawChoice(choice);
      return PromptAnswer::Skip;
    case 't':
      redrawChoice(choice);
      runTroubleshootingShell();
      // The shell may have left the terminal in any mode.
      if (keys.isTerminal()) keys.restore();
      show(kEraseLine);
      break;
    case 'c':
      redrawChoice(choice);
      RunOptions::instance().interactive = false;
      switchConsole(kBootTerminal);
      break;
    default:
      redrawChoice(choice);
  }
  return PromptAnswer::Activate;
}

}  // namespace bootforge
