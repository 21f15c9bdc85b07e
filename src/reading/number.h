// Numbers in text.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace bootforge {

/// The decimal number that a whole text is; none when there is anything else, a blank or a plus
/// sign for one, or more than the type holds.
template <typename Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

}  // namespace bootforge
