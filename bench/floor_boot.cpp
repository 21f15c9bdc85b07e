// usage: floor_boot COUNT
//
// The least that a boot of COUNT plugins with one command each costs on one worker: it asks a
// process of its own for each command, one after the other, over a UNIX socket, and that process
// spawns /bin/true and waits for it. No descriptions, no graph, no logs.

#include <cstdio>
#include <cstdlib>

#include "bench/bare_executor.h"

int main(int argc, char** argv) {
  using namespace bootforge::bench;
  constexpr const char* kSocket = "/tmp/floor_boot.sock";
  const int count = argc == 2 ? std::atoi(argv[1]) : 0;
  if (count <= 0) {
    std::fprintf(stderr, "usage: %s COUNT\n", argv[0]);
    return 2;
  }
  if (!startBareExecutor(kSocket, Request::kRunTrue)) {
    std::perror(kSocket);
    return 1;
  }
  for (int i = 0; i < count; ++i) {
    if (!bareExchange(kSocket, "bench true")) {
      std::fprintf(stderr, "%s: request %d failed\n", argv[0], i);
      return 1;
    }
  }
  stopBareExecutor(kSocket);
  return 0;
}
