// Names as captures show them, found again.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

namespace bootforge::analyze {

/// The names that a boot may mention. What writes or keeps messages escapes unusual characters,
/// each in its way; a name is found in all of these forms.
class KnownNames {
 public:
  void add(const std::string& name);

  /// The name that is shown so; null for one that is not known. It stays where it is.
  const std::string* find(std::string_view shown) const;
  bool contains(std::string_view name) const { return counts_.contains(std::string(name)); }
  /// How often a name was added.
  std::size_t count(const std::string& name) const;

 private:
  std::unordered_map<std::string, std::size_t> counts_;
  std::unordered_map<std::string, std::string> forms_;  // unusual form -> name
};

}  // namespace bootforge::analyze
