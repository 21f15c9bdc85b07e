// Reading a text from its front.
#pragma once

#include <string_view>

namespace bootforge::analyze {

/// Takes a prefix off a text. False, and the text as it was, when it begins otherwise.
inline bool take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

}  // namespace bootforge::analyze
