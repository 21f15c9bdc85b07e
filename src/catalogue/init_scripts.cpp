#include "catalogue/init_scripts.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "reading/init_scripts.h"
#include "util/exception.h"

namespace bootforge {
namespace {

struct ClosePipe {
  void operator()(FILE* pipe) const { ::pclose(pipe); }
};

/// The next line without its end; false at the end of the output.
bool readLine(FILE* pipe, std::string& line) {
  char* buffer = nullptr;
  std::size_t capacity = 0;
  const ssize_t length = ::getdelim(&buffer, &capacity, '\n', pipe);
  const std::unique_ptr<char, decltype(&std::free)> owner(buffer, &std::free);
  if (length < 0) {
    if (std::ferror(pipe) != 0) throw Exception("read error");
    return false;
  }
  line.assign(buffer, static_cast<std::size_t>(length));
  return true;
}

}  // namespace

InitScripts enumerateInitScripts() {
  InitScripts scripts;
  const std::unique_ptr<FILE, ClosePipe> pipe(::popen("/bin/chkconfig -p", "r"));
  if (!pipe || ::fileno(pipe.get()) <= 0) return scripts;
  try {
    for (std::string line; readLine(pipe.get(), line);) {
      const std::optional<InitListLine> script = readInitListLine(line);
      if (script) scripts.emplace(script->priority, script->path);
    }
  } catch (...) {
    throw Exception("Failed obtaining list of init.d scripts");
  }
  return scripts;
}

}  // namespace bootforge
