// The program's entry. Everything else is in the library, where tests can reach it.

#include <cstdint>

#include "main/boot.h"

namespace {

constexpr std::uint32_t kFrameworkMarker = 0x5CA1AB1E;

}  // namespace

extern "C" {

// The host's CLI framework knows its programs by this symbol. Nothing here reads it.
extern const std::uint32_t* const __hypclic_magic;
const std::uint32_t* const __hypclic_magic = &kFrameworkMarker;

}  // extern "C"

int main(int argc, char** argv, char** environment) {
  return bootforge::runProgram(argc, argv, environment);
}
