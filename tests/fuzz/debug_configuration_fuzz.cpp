// Any bytes as the list of debug injections, compared with another reader of the same format.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/token_functions.hpp>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "plugins/debug_configuration.h"

namespace {

using bootforge::DebugEntry;

constexpr const char* kConfiguration = "/etc/nimbus/bootforge/debug.conf";

int configuration = -1;  // a file in memory that stands in for the one in /etc

void require(bool condition) {
  if (!condition) std::abort();
}

std::string trimmed(const std::string& text) {
  constexpr const char* kSpace = " \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(kSpace);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

/// What a backslash and this character stand for.
std::optional<char> escaped(char character) {
  if (character == 'n') return '\n';
  if (std::strchr("\\,\"'", character) != nullptr && character != '\0') return character;
  return std::nullopt;
}

/// The names of a list; nothing for a bad escape.
std::optional<std::vector<std::string>> namesOf(const std::string& list) {
  const std::string text = trimmed(list);
  std::vector<std::string> names;
  if (text.empty()) return names;
  names.emplace_back();
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\\') {
      const std::optional<char> character =
          at + 1 < text.size() ? escaped(text[++at]) : std::nullopt;
      if (!character) return std::nullopt;
      names.back() += *character;
    } else if (text[at] == '"' || text[at] == '\'') {
      quoted = !quoted;
    } else if (text[at] == ',' && !quoted) {
      names.emplace_back();
    } else {
      names.back() += text[at];
    }
  }
  return names;
}

std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  for (std::size_t at = 0; at < line.size();) {
    const std::size_t colon = std::min(line.find(':', at), line.size());
    if (colon > at) fields.push_back(line.substr(at, colon - at));
    at = colon + 1;
  }
  return fields;
}

/// The entries of a file; nothing when it holds a bad escape.
std::optional<std::list<DebugEntry>> entriesOf(const std::string& text) {
  std::list<DebugEntry> entries;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::vector<std::string> fields = fieldsOf(trimmed(text.substr(at, end - at)));
    at = end + 1;
    if (fields.size() != 4) continue;
    const auto provided = namesOf(fields[1]);
    const auto required = namesOf(fields[2]);
    if (!provided || !required) return std::nullopt;
    entries.push_back({fields[0], *provided, *required, fields[3]});
  }
  return entries;
}

std::optional<std::list<DebugEntry>> load(const std::string& text) {
  require(::ftruncate(configuration, 0) == 0);
  require(::pwrite(configuration, text.data(), text.size(), 0) ==
          static_cast<ssize_t>(text.size()));
  try {
    return bootforge::loadDebugEntries();
  } catch (const boost::escaped_list_error&) {
    return std::nullopt;
  }
}

bool same(const DebugEntry& one, const DebugEntry& other) {
  return one.name == other.name && one.provides == other.provides &&
         one.requires_ == other.requires_ && one.command == other.command;
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  if (std::strcmp(path, kConfiguration) == 0) {
    const std::string name = "/proc/self/fd/" + std::to_string(configuration);
    return __real_open(name.c_str(), flags);
  }
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __real_open(path, flags, mode);
}

int __real_stat(const char* path, struct stat* status);
int __wrap_stat(const char* path, struct stat* status);
int __wrap_stat(const char* path, struct stat* status) {
  if (std::strcmp(path, kConfiguration) == 0) return ::fstat(configuration, status);
  return __real_stat(path, status);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (configuration == -1) configuration = ::memfd_create("configuration", MFD_CLOEXEC);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto loaded = load(text);
  const auto expected = entriesOf(text);
  require(loaded.has_value() == expected.has_value());
  if (!loaded) return 0;
  require(loaded->size() == expected->size());
  for (auto one = loaded->begin(), other = expected->begin(); one != loaded->end();
       ++one, ++other) {
    require(same(*one, *other));
  }
  return 0;
}

}  // extern "C"
