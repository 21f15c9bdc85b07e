#include "analyze/image/machine.h"

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

using Counts = std::map<std::uint16_t, std::size_t>;

/// The machines that none other outnumbers.
std::vector<std::uint16_t> mostFrequent(const Counts& counts) {
  std::size_t most = 0;
  for (const auto& [machine, count] : counts) most = std::max(most, count);
  std::vector<std::uint16_t> machines;
  for (const auto& [machine, count] : counts) {
    if (count == most) machines.push_back(machine);
  }
  return machines;
}

/// Counts the ELF files below a folder. Links are not followed, so nothing is met twice.
void countBelow(const RootFolder& root, Counts& counts) {
  std::vector<std::string> folders{"/"};
  while (!folders.empty()) {
    const std::string folder = std::move(folders.back());
    folders.pop_back();
    for (const std::string& name : root.list(folder).value_or(std::vector<std::string>())) {
      const std::string path = joined(folder, name);
      if (root.readLink(path)) continue;
      const std::optional<FileStatus> status = root.status(path);
      if (!status) continue;
      if (status->isFolder()) folders.push_back(path);
      if (!status->isRegular() || status->size < EI_NIDENT + 4) continue;
      char head[EI_NIDENT + 4];
      const UniqueFd file = root.open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
      if (!file) continue;
      const ssize_t count = retryInterrupted([&] { return ::read(file.get(), head, sizeof head); });
      if (count != static_cast<ssize_t>(sizeof head)) continue;
      if (const auto machine = machineOf({head, sizeof head})) ++counts[*machine];
    }
  }
}

}  // namespace

std::uint16_t machineOfImage(const RootFolder& root, const std::vector<PluginFile>& files) {
  Counts plugins;
  for (const PluginFile& file : files) {
    if (file.entry.kind == Entry::Kind::Native && file.native.machine != EM_NONE) {
      ++plugins[file.native.machine];
    }
  }
  const std::vector<std::uint16_t> machines = mostFrequent(plugins);
  if (machines.empty()) return EM_NONE;
  if (machines.size() == 1) return machines.front();
  Counts all;
  countBelow(root, all);
  return mostFrequent(all).front();
}

}  // namespace bootforge::analyze
