// The switches of mutants (scripts/mutate): MUTANT in the environment is the number of the one that
// is on, MUTANTS_REACHED a file in which each test marks those that it comes by.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>

namespace mutants {

constexpr std::size_t kMost = 1024;   // mutants
constexpr std::size_t kTests = 2048;  // of one program

struct State {
  int chosen = 0;
  std::size_t test = 0;
  unsigned char* reached = nullptr;  // a row of tests for each mutant; children share it
};

inline State state = [] {
  State first;
  if (const char* const number = std::getenv("MUTANT")) first.chosen = std::atoi(number);
  const char* const path = std::getenv("MUTANTS_REACHED");
  const int file = path != nullptr ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0) return first;
  void* const memory = ::mmap(nullptr, kMost * kTests, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory != MAP_FAILED) first.reached = static_cast<unsigned char*>(memory);
  ::close(file);
  return first;
}();

inline bool on(int number) {
  if (state.reached != nullptr) state.reached[number * kTests + state.test] = 1;
  return state.chosen == number;
}

}  // namespace mutants
