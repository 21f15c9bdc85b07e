#include "main/exec_routine.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "main/run_options.h"
#include "platform/log.h"
#include "util/child_process.h"
#include "util/standard_streams.h"
#include "util/system_error.h"

namespace bootforge {

bool runAndWait(const std::string& path, const std::vector<std::string>& arguments) {
  std::vector<char*> words{const_cast<char*>(path.c_str())};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  char** const environment = RunOptions::instance().environment;

  const pid_t child = ::fork();
  if (child == 0) {
    Log_Detach();
    closeOtherDescriptors();
    redirectStandardStreams("/dev/null");
    Log_Detach();
    resetSignals();
    ::execve(path.c_str(), words.data(), environment);
    const int error = errno;
    Log_Level(2, "execve(%s) failure: %s\n", path.c_str(), systemErrorText(error).c_str());
    ::_exit(1);
  }
  if (child < 0) {
    const int error = errno;
    Log_Level(2, "fork(%s) failure: %s\n", path.c_str(), systemErrorText(error).c_str());
    return false;
  }
  int status = 0;
  const pid_t ended = retryInterrupted([&] { return ::waitpid(child, &status, 0); });
  return ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace bootforge
