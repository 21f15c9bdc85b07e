#include "tests/unit/catalogue/stdio_faults.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

bool popenFails = false;
int linesLeft = -1;  // below 0: no failure is planned

}  // namespace

namespace bootforge::test {

void failNextPopen() { popenFails = true; }
void failGetlineAfter(int skip) { linesLeft = skip; }

}  // namespace bootforge::test

extern "C" {

FILE* __real_popen(const char*, const char*);
FILE* __wrap_popen(const char* command, const char* mode) {
  if (!popenFails) return __real_popen(command, mode);
  popenFails = false;
  errno = EMFILE;
  return nullptr;
}

ssize_t __real_getdelim(char**, size_t*, int, FILE*);
ssize_t __wrap_getdelim(char** line, size_t* capacity, int delimiter, FILE* stream) {
  if (linesLeft == 0) {
    // A descriptor that cannot be read from makes the stream set its error flag by itself.
    const int unreadable = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(unreadable, fileno(stream));
    ::close(unreadable);
  }
  if (linesLeft >= 0) --linesLeft;
  return __real_getdelim(line, capacity, delimiter, stream);
}

}  // extern "C"
