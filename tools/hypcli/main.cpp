// hypcli: the host's management commands at a shell.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/linux/command_line.h"
#include "platform/linux/command_registry.h"
#include "platform/linux/command_runner.h"
#include "platform/linux/text.h"
#include "platform/log.h"
#include "tools/hypcli/advice.h"
#include "tools/hypcli/help.h"
#include "util/version.h"

namespace {

using host_linux::BoundCommand;
using host_linux::CommandLine;
using host_linux::CommandRegistry;

enum ExitStatus { kDone = 0, kFailed = 1, kUsage = 2 };

/// In the order in which the boot registers them.
constexpr std::array kDirectories{
    BOOTFORGE_COMMAND_DIR,
    BOOTFORGE_COMMAND_DIR "/int",
    BOOTFORGE_COMMAND_DIR "/int/ext",
    BOOTFORGE_COMMAND_DIR "/ext",
};

/// A descriptor opened later must not become a standard stream.
void openMissingStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) == -1) open("/dev/null", O_RDWR);
  }
}

/// What we make, or a program that we start, nobody but us may write.
void takeUmask() { umask(umask(S_IWGRP | S_IWOTH) | S_IWGRP | S_IWOTH); }

void readCommands(CommandRegistry* registry) {
  for (const char* directory : kDirectories) {
    // No host needs to have all of them.
    if (access(directory, F_OK) != 0 && errno == ENOENT) continue;
    try {
      registry->addDirectory(directory);
    } catch (const std::exception& error) {
      Warning("%s\n", error.what());
    }
  }
}

/// Command files and arguments are written by others: nothing in them commands a terminal.
void tell(const char* prefix, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    std::fprintf(stderr, "%s%s\n", prefix, host_linux::withoutControls(line).c_str());
  }
}

/// Ends with what may have been meant and with the help that is about what was named.
int refuse(const CommandRegistry& registry, const CommandLine& line,
           const std::vector<std::string>& errors, const BoundCommand& bound = {}) {
  tell("hypcli: ", errors);
  tell("", hypcli::suggestions(registry, line, bound));
  std::string about = host_linux::joinWords(hypcli::knownPart(registry, line.path));
  if (!about.empty()) about += ' ';
  tell("", {"Try 'hypcli " + about + "--help' for more information."});
  return kUsage;
}

int runLine(const CommandRegistry& registry, const CommandLine& line) {
  if (!line.errors.empty()) return refuse(registry, line, line.errors);
  BoundCommand bound = host_linux::bindCommand(registry, line.path, line.parameters);
  tell("hypcli: ", hypcli::remarksOnMissingValues(registry, line));
  if (!bound.errors.empty()) return refuse(registry, line, bound.errorTexts(), bound);
  std::vector<std::string> errors = host_linux::runCommand(bound);
  tell("", errors);
  return errors.empty() ? kDone : kFailed;
}

/// "--help" or "-h" is the last word and asks for a description, unless the command itself takes
/// it.
bool takeHelpWord(const CommandRegistry& registry, std::vector<std::string>* words) {
  if (words->empty() || (words->back() != "--help" && words->back() != "-h")) return false;
  const std::string name = words->back().substr(words->back().find_first_not_of('-'));
  const host_linux::Command* command = registry.find(host_linux::parseWords(*words).path);
  if (command && host_linux::findParameter(command->parameters, name)) return false;
  words->pop_back();
  return true;
}

int answer(std::vector<std::string> words) {
  if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) {
    hypcli::printUsage();
    return kDone;
  }
  if (!words.empty() && (words[0] == "--version" || words[0] == "-v")) {
    std::printf("hypcli %s\n", bootforge::version());
    return kDone;
  }
  CommandRegistry registry;
  readCommands(&registry);
  if (words.size() == 1 && words[0] == "--list") {
    hypcli::printList(registry);
    return kDone;
  }
  bool wantsHelp = takeHelpWord(registry, &words);
  CommandLine line = host_linux::parseWords(words);
  // The words of a namespace alone ask what there is in it, as no words do.
  bool isMistake = !words.empty() && !line.errors.empty();
  bool isRun = registry.find(line.path) || !line.parameters.empty() || isMistake;
  if (!wantsHelp && isRun && line.path.empty() && line.errors.empty()) {
    return refuse(registry, line, {"no command before '" + words.front() + "'"});
  }
  if (!wantsHelp && isRun) return runLine(registry, line);
  if (line.path.empty() && registry.nameSpaces().empty()) {
    hypcli::printFoldersOf(kDirectories);
    return kDone;
  }
  if (hypcli::describe(registry, line.path)) return kDone;
  return refuse(registry, line, {"unknown command '" + host_linux::joinWords(line.path) + "'"});
}

}  // namespace

int main(int argc, char** argv) {
  openMissingStreams();
  takeUmask();
  // Warnings about bad command files belong on standard error, beside our own.
  Log_SetStderrLevel(0, 3);
  int status = answer({argv + std::min(argc, 1), argv + argc});
  if (std::fflush(stdout) != 0 && status == kDone) {
    std::perror("hypcli: standard output");
    return kFailed;
  }
  return status;
}
