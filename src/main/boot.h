// The program, from its command line to its exit status.
#pragma once

namespace bootforge {

/// What main does. Returns the exit status.
int runProgram(int argc, char** argv, char** environment);

}  // namespace bootforge
