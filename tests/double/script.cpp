#include "tests/double/script.h"

#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace bootforge::doubles {

Script& script() {
  static Script current;
  return current;
}

Hook throwsError(std::string what) {
  return [what = std::move(what)](const std::string&) { throw std::runtime_error(what); };
}

Hook throwsOther() {
  return [](const std::string&) { throw 42; };
}

CommandHook failsWith(std::vector<std::string> errors) {
  return [errors = std::move(errors)](const CppTools::AutoCli::CommandInput&,
                                      CppTools::AutoCli::CommandOutput& output) {
    for (const std::string& error : errors) output.AddError(error);
  };
}

CommandHook commandThrowsError(std::string what) {
  return [what = std::move(what)](const CppTools::AutoCli::CommandInput&,
                                  CppTools::AutoCli::CommandOutput&) {
    throw std::runtime_error(what);
  };
}

CommandHook commandThrowsOther() {
  return
      [](const CppTools::AutoCli::CommandInput&, CppTools::AutoCli::CommandOutput&) { throw 42; };
}

CommandHook waitsForFile(std::string path) {
  return [path = std::move(path)](const CppTools::AutoCli::CommandInput&,
                                  CppTools::AutoCli::CommandOutput& output) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (::access(path.c_str(), F_OK) != 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        output.AddError("waited too long for " + path);
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  };
}

}  // namespace bootforge::doubles
