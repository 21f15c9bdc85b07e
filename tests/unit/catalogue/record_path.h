// Where the run-once record stands.
#pragma once

namespace bootforge::test {

inline constexpr const char* kRecordPath = "/bootbank/bootfrge.gz";

}  // namespace bootforge::test
