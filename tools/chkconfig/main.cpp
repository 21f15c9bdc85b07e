// Init scripts and their start priorities, for hosts without such a tool.
//
//   chkconfig --help, -h           how it is used
//   chkconfig -p                   one line, PATH PRIORITY, for each script that has a priority
//   chkconfig --add-launchers      a launcher link for each of them
//   chkconfig --remove-launchers   no launcher links

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "reading/init_scripts.h"

namespace {

namespace fs = boost::filesystem;

constexpr const char* kScripts = "/etc/init.d";
constexpr const char* kLauncher = BOOTFORGE_HELPER_DIR "/launch";
constexpr const char* kLauncherLinks = BOOTFORGE_HELPER_DIR "/init.d";
constexpr const char* kRunLevels[] = {"/etc/rc3.d", "/etc/rc2.d"};

constexpr const char* kHelp =
    "usage: chkconfig -p | --add-launchers | --remove-launchers\n"
    "Tells bootforge(8) which init scripts there are, on a host without such a tool.\n"
    "\n"
    "  -p                  one line, PATH PRIORITY, for each executable script in /etc/init.d "
    "that\n"
    "                      has a priority: START of its header \"# chkconfig: LEVELS START STOP\", "
    "or\n"
    "                      else the number of its S link in /etc/rc3.d or /etc/rc2.d\n"
    "  --add-launchers     make a link to the launcher, launch(8), for each of them, in\n"
    "                      " BOOTFORGE_HELPER_DIR
    "/init.d; from then on -p lists these\n"
    "  --remove-launchers  remove these links\n"
    "  --help, -h          this text\n"
    "\n"
    "Exit status: 0 when it is done, 1 when something failed, 2 for a wrong option.\n";

struct Script {
  std::string name;
  int priority;
};

/// The scripts that have a priority, by name.
struct Listing {
  std::vector<Script> scripts;
  bool complete = true;
};

/// Says what could not be looked at; the list goes on without it.
void miss(Listing& listing, const std::string& path, const std::string& reason) {
  std::fprintf(stderr, "chkconfig: %s: %s\n", path.c_str(), reason.c_str());
  listing.complete = false;
}

/// The content of a file, or nothing and errno.
std::optional<std::string> readFile(const std::string& path) {
  errno = EIO;
  std::ifstream file(path);
  if (!file) return std::nullopt;
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (file.bad()) return std::nullopt;
  return text;
}

std::optional<int> priorityOf(const std::string& name, const std::string& path, Listing& listing) {
  const std::optional<std::string> script = readFile(path);
  if (!script) {
    miss(listing, path, std::strerror(errno));
    return std::nullopt;
  }
  if (const auto priority = bootforge::startPriorityIn(*script)) return priority;
  for (const char* level : kRunLevels) {
    boost::system::error_code error;
    for (const auto& entry : fs::directory_iterator(level, error)) {
      const std::string link = entry.path().filename().string();
      if (const auto number = bootforge::startNumberOf(link, name)) return number;
    }
    if (error && error != boost::system::errc::no_such_file_or_directory) {
      miss(listing, level, error.message());
    }
  }
  return std::nullopt;
}

/// Throws fs::filesystem_error when the folder of the scripts cannot be read.
Listing listScripts() {
  Listing listing;
  std::vector<Script>& scripts = listing.scripts;
  for (const auto& entry : fs::directory_iterator(kScripts)) {
    const std::string path = entry.path().string();
    const std::string name = entry.path().filename().string();
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
      // A link that leads nowhere is no script.
      if (errno != ENOENT) miss(listing, path, std::strerror(errno));
      continue;
    }
    if (!S_ISREG(status.st_mode) || (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) {
      continue;
    }
    if (name.find_first_of(" \t\n\v\f\r") != std::string::npos) {
      std::fprintf(stderr, "chkconfig: %s: a name with white space cannot be listed\n",
                   path.c_str());
      continue;
    }
    if (const auto priority = priorityOf(name, path, listing)) scripts.push_back({name, *priority});
  }
  std::sort(scripts.begin(), scripts.end(),
            [](const Script& one, const Script& other) { return one.name < other.name; });
  return listing;
}

std::string linkOf(const std::string& name) { return std::string(kLauncherLinks) + '/' + name; }

bool isLauncherLink(const fs::path& link) {
  boost::system::error_code error;
  return fs::read_symlink(link, error) == kLauncher && !error;
}

int flushed() {
  if (std::fflush(stdout) == 0) return 0;
  std::fprintf(stderr, "chkconfig: standard output: %s\n", std::strerror(errno));
  return 1;
}

int print() {
  const Listing listing = listScripts();
  for (const Script& script : listing.scripts) {
    const std::string link = linkOf(script.name);
    const std::string path =
        isLauncherLink(link) ? link : std::string(kScripts) + '/' + script.name;
    std::printf("%s %d\n", path.c_str(), script.priority);
  }
  const int result = flushed();
  return listing.complete ? result : 1;
}

int addLaunchers() {
  fs::create_directories(kLauncherLinks);
  const Listing listing = listScripts();
  int result = listing.complete ? 0 : 1;
  for (const Script& script : listing.scripts) {
    const std::string link = linkOf(script.name);
    if (isLauncherLink(link)) continue;
    boost::system::error_code error;
    fs::create_symlink(kLauncher, link, error);
    if (!error) continue;
    std::fprintf(stderr, "chkconfig: %s: %s\n", link.c_str(), error.message().c_str());
    result = 1;
  }
  return result;
}

int removeLaunchers() {
  boost::system::error_code error;
  std::vector<fs::path> links;
  for (const auto& entry : fs::directory_iterator(kLauncherLinks, error)) {
    if (isLauncherLink(entry.path())) links.push_back(entry.path());
  }
  for (const fs::path& link : links) fs::remove(link);
  // Whatever else somebody keeps there keeps the folder.
  ::rmdir(kLauncherLinks);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string option = argc == 2 ? argv[1] : "";
  try {
    if (option == "--help" || option == "-h") {
      std::fputs(kHelp, stdout);
      return flushed();
    }
    if (option == "-p") return print();
    if (option == "--add-launchers") return addLaunchers();
    if (option == "--remove-launchers") return removeLaunchers();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "chkconfig: %s\n", error.what());
    return 1;
  }
  std::fputs("usage: chkconfig -p | --add-launchers | --remove-launchers\n", stderr);
  return 2;
}
