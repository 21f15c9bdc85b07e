// The shared objects of samples/, to be put where a test wants them.
#pragma once

#include <string>

namespace bootforge::test {

/// The bytes of the object made from samples/NAME.c. Throws std::out_of_range for another name.
std::string sharedObject(const std::string& name);

}  // namespace bootforge::test
