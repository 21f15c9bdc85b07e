// The shared objects of samples/, to be put where a test wants them.
#pragma once

#include <elf.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace bootforge::test {

/// The bytes of the object made from samples/NAME.c. Throws std::out_of_range for another name.
std::string sharedObject(const std::string& name);

/// How much of an object's bytes the loader needs: what follows are section headers and the like.
inline std::size_t endOfSegments(const std::string& object) {
  Elf64_Ehdr header{};
  std::memcpy(&header, object.data(), sizeof header);
  std::size_t end = 0;
  for (std::size_t i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr program{};
    std::memcpy(&program, object.data() + header.e_phoff + i * sizeof program, sizeof program);
    if (program.p_type == PT_LOAD) end = std::max(end, program.p_offset + program.p_filesz);
  }
  return end;
}

}  // namespace bootforge::test
