#include "platform/linux/command_registry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "platform/linux/command_file.h"
#include "platform/linux/command_line.h"
#include "platform/linux/descriptor.h"
#include "platform/log.h"

namespace host_linux {
namespace {

constexpr std::size_t kLargestFile = 16U << 20;

using Directory = std::unique_ptr<DIR, decltype([](DIR* directory) { ::closedir(directory); })>;

[[noreturn]] void failDirectory(const std::string& directory, int error) {
  throw std::runtime_error(directory + ": " + errorText(error));
}

std::vector<std::string> listCommandFiles(DIR* stream, const std::string& directory) {
  std::vector<std::string> names;
  while (errno = 0, true) {
    const dirent* entry = ::readdir(stream);
    if (!entry) break;
    std::string_view name = entry->d_name;
    if (isCommandFileName(name)) names.emplace_back(name);
  }
  if (errno != 0) failDirectory(directory, errno);
  std::sort(names.begin(), names.end());
  return names;
}

std::string readCommandFile(int directory, const std::string& name) {
  // O_NONBLOCK: a FIFO is not waited on.
  Descriptor file(uninterrupted([&] {
    return ::openat(directory, name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  }));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) throw std::runtime_error(errorText(errno));
  if (!S_ISREG(status.st_mode)) throw std::runtime_error("is no regular file");
  std::string text;
  for (std::size_t used = 0;; text.resize(used)) {
    text.resize(used + 65536);
    ssize_t count =
        uninterrupted([&] { return ::read(file.get(), text.data() + used, text.size() - used); });
    if (count < 0) throw std::runtime_error(errorText(errno));
    used += static_cast<std::size_t>(count);
    if (used > kLargestFile) throw std::runtime_error("is larger than 16 MiB");
    if (count == 0) return text.substr(0, used);
  }
}

}  // namespace

bool isCommandFileName(std::string_view name) {
  return name.ends_with(".json") && !name.starts_with('.');
}

void CommandRegistry::addDirectory(const std::string& directory) {
  Directory stream(::opendir(directory.c_str()));
  if (!stream) failDirectory(directory, errno);
  for (const std::string& name : listCommandFiles(stream.get(), directory)) {
    std::string path = directory + (directory.ends_with('/') ? "" : "/") + name;
    try {
      const CommandFile file = parseCommandFile(readCommandFile(::dirfd(stream.get()), name));
      for (const CommandFile::Finding& remark : file.remarks) {
        Log_Level(3, "command file %s: %s is ignored\n", path.c_str(), remark.text.c_str());
      }
      for (const Shadowed& shadowed : add(file, path)) {
        Log_Level(5, "command '%s' of %s takes the place of that of %s\n",
                  joinWords(shadowed.path).c_str(), path.c_str(), shadowed.file.c_str());
      }
    } catch (const std::exception& error) {
      Log_Level(3, "command file %s is skipped: %s\n", path.c_str(), error.what());
    }
  }
}

std::vector<CommandRegistry::Shadowed> CommandRegistry::add(const CommandFile& file,
                                                            const std::string& path) {
  std::vector<Shadowed> shadowed;
  nameSpaces_.insert(file.nameSpace);
  for (std::size_t i = 0; i < file.commands.size(); ++i) {
    std::vector<std::string> commandPath = file.nameSpace;
    commandPath.push_back(file.commands[i].word);
    auto [place, isNew] = commands_.try_emplace(std::move(commandPath));
    if (!isNew) shadowed.push_back({place->first, place->second.file, i});
    place->second = {file.commands[i].command, path};
  }
  return shadowed;
}

const Command* CommandRegistry::find(const std::vector<std::string>& path) const {
  auto found = commands_.find(path);
  return found == commands_.end() ? nullptr : &found->second.command;
}

}  // namespace host_linux
