#include "platform/config_store.h"

#include <unistd.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <stdexcept>
#include <string>

#include "platform/linux/descriptor.h"

namespace HypConfigStore {
namespace {

namespace fs = boost::filesystem;

constexpr const char* kAutoConfMarker = "/var/run/nimbus/configstore/autoconf";
constexpr const char* kBootState = "/var/run/nimbus/configstore/boot-state";

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
  throw std::runtime_error("cannot remove " + path + ": " + reason);
}

}  // namespace

void EndAutoConf() {
  if (::unlink(kAutoConfMarker) != 0 && errno != ENOENT && errno != ENOTDIR) {
    fail(kAutoConfMarker, host_linux::errorText(errno));
  }
}

void CleanupBootState() {
  boost::system::error_code error;
  fs::file_type type = fs::symlink_status(kBootState, error).type();
  if (type == fs::file_not_found) return;
  // A symbolic link here could lead to any place of the host.
  if (type != fs::directory_file) {
    fail(std::string("what is below ") + kBootState,
         type == fs::status_error ? error.message() : host_linux::errorText(ENOTDIR));
  }
  fs::directory_iterator entry(kBootState, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    boost::system::error_code removal;
    fs::remove_all(entry->path(), removal);  // removes symbolic links themselves
    if (removal) fail(entry->path().string(), removal.message());
  }
  if (error) fail(std::string("what is below ") + kBootState, error.message());
}

}  // namespace HypConfigStore
