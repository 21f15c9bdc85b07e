// Failures of the C library's pipes to programs.
#pragma once

namespace bootforge::test {

/// Makes the next popen(3) of this process fail.
void failNextPopen();

/// Makes the getline(3) after the next `skip` ones fail as when reading fails.
void failGetlineAfter(int skip);

}  // namespace bootforge::test
