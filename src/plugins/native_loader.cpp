#include "plugins/native_loader.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "bootforge/plugin.h"
#include "plugins/exceptions.h"
#include "util/system_error.h"
#include "util/unique_fd.h"

namespace bootforge {
namespace {

/// Whether a file ends before what the loader would map of it ends: the loader does not look, and
/// the first access to what is missing would end the process.
bool isCut(const std::string& path) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  ElfW(Ehdr) header{};
  if (!file || ::fstat(file.get(), &status) != 0 ||
      ::pread(file.get(), &header, sizeof header, 0) != sizeof header) {
    return false;  // the loader has its own words for it
  }
  std::vector<ElfW(Phdr)> programs(header.e_phnum);
  const ssize_t got = ::pread(file.get(), programs.data(), programs.size() * sizeof programs[0],
                              static_cast<off_t>(header.e_phoff));
  programs.resize(got > 0 ? static_cast<std::size_t>(got) / sizeof programs[0] : 0);
  const auto size = static_cast<std::uint64_t>(status.st_size);
  return std::any_of(programs.begin(), programs.end(), [size](const auto& program) {
    return program.p_type == PT_LOAD &&
           (program.p_offset > size || program.p_filesz > size - program.p_offset);
  });
}

/// A loaded object, and memory that its records may point to.
class LoadedObject {
 public:
  explicit LoadedObject(const std::string& path) : path_(path) {
    // The loader would wait for the other end of a FIFO.
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) &&
        !S_ISDIR(status.st_mode)) {
      reject(path + ": cannot open shared object file: " + systemErrorText(ENXIO));
    }
    if (isCut(path)) reject(path + ": file too short");
    ::dlerror();
    handle_ = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
    if (handle_ == nullptr) reject(::dlerror());
  }
  ~LoadedObject() { ::dlclose(handle_); }
  LoadedObject(const LoadedObject&) = delete;
  LoadedObject& operator=(const LoadedObject&) = delete;

  [[noreturn]] void reject(const std::string& reason) const {
    throw InvalidPluginException(path_, reason);
  }

  /// The address of a symbol.
  const void* symbol(const char* name) const {
    ::dlerror();
    const void* const address = ::dlsym(handle_, name);
    const char* error = ::dlerror();
    if (error == nullptr && address == nullptr) error = "symbol has no address";
    if (error == nullptr) return address;
    throw Exception("Failed loading symbol: " + std::string(name) + " Located at: " + path_ +
                    " Reason: " + error);
  }

  /// How many bytes the object gives the symbol at an address; none when it does not say.
  static std::optional<std::size_t> sizeAt(const void* address) {
    Dl_info information{};
    void* entry = nullptr;
    if (::dladdr1(address, &information, &entry, RTLD_DL_SYMENT) == 0 || entry == nullptr ||
        information.dli_saddr != address) {
      return std::nullopt;
    }
    const std::size_t size = static_cast<const ElfW(Sym)*>(entry)->st_size;
    if (size == 0) return std::nullopt;
    return size;
  }

  template <typename Value>
  Value read(const void* address) const {
    Value value;
    readBytes(address, &value, sizeof value);
    return value;
  }

  void readBytes(const void* address, void* target, std::size_t size) const {
    if (copy(address, target, size) != size) reject(native::kWildPointer);
  }

  /// A string that ends in a zero byte.
  std::string readText(const char* address) const {
    std::string text;
    for (char chunk[256];;) {
      const char* const at = address + text.size();
      // Never over the end of a page: what is behind it need not be there.
      const std::size_t size =
          std::min(sizeof chunk, kPage - reinterpret_cast<std::uintptr_t>(at) % kPage);
      const std::size_t count = copy(at, chunk, size);
      if (count == 0) reject(native::kWildPointer);
      const void* const end = std::memchr(chunk, 0, count);
      text.append(chunk, end == nullptr
                             ? count
                             : static_cast<std::size_t>(static_cast<const char*>(end) - chunk));
      if (end != nullptr) return text;
    }
  }

 private:
  static constexpr std::size_t kPage = 4096;

  /// Copies bytes that may not be there and returns their number. Asks the kernel,
  /// process_vm_readv(2), which says EFAULT where a plain access would end the process.
  std::size_t copy(const void* address, void* target, std::size_t size) const {
    const iovec from{const_cast<void*>(address), size};
    const iovec to{target, size};
    const ssize_t count = ::process_vm_readv(process_, &to, 1, &from, 1, 0);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (errno == EFAULT) return 0;
    // A kernel without that call: the records are trusted.
    std::memcpy(target, address, size);
    return size;
  }

  const std::string& path_;
  const pid_t process_ = ::getpid();
  void* handle_;
};

/// The names of an array that ends in null, or is null.
std::vector<std::string> readNames(const LoadedObject& object, const char* const* names) {
  std::vector<std::string> result;
  if (names == nullptr) return result;
  for (;; ++names) {
    const auto* const name = object.read<const char*>(names);
    if (name == nullptr) return result;
    result.push_back(object.readText(name));
  }
}

}  // namespace

NativeRecord loadNativeRecord(const std::string& path) {
  const LoadedObject object(path);
  const void* const operations = object.symbol(native::kOperations);
  const void* const metadata = object.symbol(native::kMetadata);
  if (LoadedObject::sizeAt(operations).value_or(SIZE_MAX) < native::kOperationsSize) {
    object.reject(native::kShortOperations);
  }
  NativeRecord record;
  record.hasApplyHostProfile =
      object.read<bootforge_operations>(operations).apply_host_profile != nullptr;
  // The first four bytes are all that may be looked at until the version is known.
  record.apiVersion = object.read<std::int32_t>(metadata);
  if (!native::isSupported(record.apiVersion)) object.reject(native::kUnsupportedVersion);
  const std::size_t needed = native::metadataSize(record.apiVersion);
  if (LoadedObject::sizeAt(metadata).value_or(SIZE_MAX) < needed) {
    object.reject(native::kShortMetadata);
  }
  unsigned char bytes[sizeof(bootforge_metadata)];
  object.readBytes(metadata, bytes, needed);
  const auto pointerAt = [&bytes](std::size_t offset) {
    const char* pointer = nullptr;
    std::memcpy(&pointer, bytes + offset, sizeof pointer);
    return pointer;
  };
  const auto namesAt = [&](std::size_t offset) {
    return readNames(object, reinterpret_cast<const char* const*>(pointerAt(offset)));
  };
  record.provides = namesAt(offsetof(bootforge_metadata, provides));
  record.requires_ = namesAt(offsetof(bootforge_metadata, requires_));
  if (record.apiVersion < 3) return record;
  record.requiredFlags = namesAt(offsetof(bootforge_metadata, required_flags));
  record.disablingFlags = namesAt(offsetof(bootforge_metadata, disabling_flags));
  // Not every author writes C: a byte that is neither 0 nor 1 is no bool to be read as one.
  record.runOnce = bytes[offsetof(bootforge_metadata, run_once)] != 0;
  if (const char* const version = pointerAt(offsetof(bootforge_metadata, plugin_version))) {
    record.pluginVersion = object.readText(version);
  }
  return record;
}

}  // namespace bootforge
