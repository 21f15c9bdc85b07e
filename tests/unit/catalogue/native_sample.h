// A native plugin to be put where a test wants it.
#pragma once

#include <string>

namespace bootforge::test {

/// The bytes of the shared object that native_sample.c makes: API version 4, version "1.0", run
/// once, provides "native-sample-up", requires the flag "sample-on".
std::string nativeSample();

}  // namespace bootforge::test
