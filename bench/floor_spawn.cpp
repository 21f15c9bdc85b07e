// usage: floor_spawn WORKERS LIST [SYMBOL]
//
// The least that it costs to run each line of LIST as a program: so many threads take one line
// after the other, spawn it and wait for it. No order between the lines, no log, no limit of time.
//
// With SYMBOL, the last word of each line is a shared object, which is loaded before, searched for
// the symbol and unloaded.

#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Command = std::vector<std::string>;

std::vector<Command> readCommands(const char* list) {
  std::vector<Command> commands;
  std::ifstream file(list);
  for (std::string line; std::getline(file, line);) {
    std::istringstream text(line);
    Command& command = commands.emplace_back();
    for (std::string word; text >> word;) command.push_back(std::move(word));
  }
  return commands;
}

bool runToEnd(Command& command) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  pid_t child = 0;
  int status = 1;
  return ::posix_spawn(&child, words[0], nullptr, nullptr, words.data(), environ) == 0 &&
         ::waitpid(child, &status, 0) == child && status == 0;
}

bool hasSymbol(const std::string& path, const char* symbol) {
  void* const object = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
  if (object == nullptr) return false;
  const bool isThere = ::dlsym(object, symbol) != nullptr;
  ::dlclose(object);
  return isThere;
}

}  // namespace

int main(int argc, char** argv) {
  const int workers = argc == 3 || argc == 4 ? std::atoi(argv[1]) : 0;
  if (workers <= 0) {
    std::fprintf(stderr, "usage: %s WORKERS LIST [SYMBOL]\n", argv[0]);
    return 2;
  }
  std::vector<Command> commands = readCommands(argv[2]);
  std::atomic<std::size_t> next = 0;
  std::atomic<bool> good = !commands.empty();
  for (const Command& command : commands) {
    if (argc == 4 && !hasSymbol(command.back(), argv[3])) good = false;
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < workers; ++i) {
    threads.emplace_back([&] {
      for (std::size_t mine; (mine = next++) < commands.size();) {
        if (!runToEnd(commands[mine])) good = false;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  if (!good) std::fprintf(stderr, "%s: not everything in %s ended well\n", argv[0], argv[2]);
  return good ? 0 : 1;
}
