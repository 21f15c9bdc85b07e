// The readers' side of a Dictionary.
#pragma once

#include <map>
#include <string>

#include "platform/dictionary.h"

struct Dictionary {
  std::map<std::string, std::string, std::less<>> values;
};

namespace host_linux {

/// The value of `key`, or null when it is not set or there is no dictionary.
const std::string* findString(const Dictionary* dictionary, const char* key);

/// Stores the value of `key` in `value`, which stays as it is when the key is not set. False when
/// the text is no truth value.
bool readBool(const Dictionary* dictionary, const char* key, bool* value);

}  // namespace host_linux
