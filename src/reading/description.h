// What a plugin description says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reading/json_text.h"

namespace bootforge {

/// A string of a description, and the offset in bytes at which it stands.
struct PlacedString {
  std::string text;
  std::size_t at = 0;
};

/// A description as plain data. What could be read is there whatever else is wrong.
struct Description {
  using Strings = std::vector<PlacedString>;

  /// The parts of a description in the order in which they are looked at.
  enum class Part {
    Root,
    Metadata,
    Version,
    Requires,
    Provides,
    RequiredFlags,
    DisablingFlags,
    RunOnce,
    PluginVersion,
    Operations,
    Start,
    ApplyHostProfile,
  };

  /// Why the description is rejected, and where: at a value, or at the object that lacks it.
  struct Fault {
    Part part;
    std::string reason;
    std::size_t at;
  };

  /// None when the version cannot be read or is not supported: what depends on it is not read then.
  std::optional<std::int32_t> apiVersion;
  // Lists are whole or empty.
  Strings requires_;
  Strings provides;
  Strings requiredFlags;
  Strings disablingFlags;
  bool runOnce = false;
  std::string pluginVersion;
  Strings startCommands;
  std::optional<Strings> applyHostProfileCommands;

  /// All of them, in the order of the parts. The first one is the reason of the rejection.
  std::vector<Fault> faults;

  /// Whether a reader that stops at the first fault gets past a part.
  bool isGoodUpTo(Part part) const { return faults.empty() || faults.front().part > part; }
};

/// Why a description whose file could not be read is rejected; `error` is that of the attempt.
/// Files that are too large (EFBIG) are told from those that are not there or are no files.
const char* unreadableDescription(int error);

/// Reads a description. Never fails: what is wrong stands in it.
Description readDescription(const JsonText& json);

/// What is no fault, but means nothing.
struct DescriptionRemark {
  enum class Kind { UnknownKey, DuplicateKey, IgnoredKey, TrailingText };
  Kind kind;
  std::string key;      // none for trailing text
  std::size_t at;       // of the key, or of the trailing text
  std::string nearest;  // the known key that an unknown one may stand for, or nothing
};

/// Looks for keys and text that a reader passes over.
std::vector<DescriptionRemark> remarksOn(const JsonText& json, const Description& description);

}  // namespace bootforge
