#include "reading/description.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>

#include "reading/nearest.h"

namespace bootforge {
namespace {

using Part = Description::Part;
using Value = JsonText::Value;

constexpr std::int32_t kFlagsVersion = 3;
constexpr std::int32_t kHostProfileVersion = 2;

// The known keys of each object, with the version from which on they mean something, and the place
// of each in its table.
struct KnownKey {
  std::string_view key;
  std::int32_t since = 1;
};
enum RootKey { kMetadata, kOperations };
constexpr std::array kRootKeys{KnownKey{"metadata"}, KnownKey{"operations"}};
enum MetadataKey {
  kVersion,
  kRequires,
  kProvides,
  kRequiredFlags,
  kDisablingFlags,
  kRunOnce,
  kPluginVersion,
};
constexpr std::array kMetadataKeys{
    KnownKey{"version"},
    KnownKey{"requires"},
    KnownKey{"provides"},
    KnownKey{"required_flags", kFlagsVersion},
    KnownKey{"disabling_flags", kFlagsVersion},
    KnownKey{"run_once", kFlagsVersion},
    KnownKey{"plugin_version", kFlagsVersion},
};
enum OperationsKey { kStart, kApplyHostProfile };
constexpr std::array kOperationsKeys{KnownKey{"start"},
                                     KnownKey{"apply_host_profile", kHostProfileVersion}};

/// Where a key stands among the known ones, or their end.
template <typename Keys>
auto placeIn(const Keys& known, std::string_view key) {
  return std::find_if(known.begin(), known.end(),
                      [key](const KnownKey& other) { return other.key == key; });
}

/// What an object has for each of the known keys: of equal keys the last one counts.
template <std::size_t count>
class Section {
 public:
  Section(const JsonText& json, const Value& object, const std::array<KnownKey, count>& known)
      : object_(object) {
    for (const JsonText::Entry& entry : json.entries(object)) {
      const auto place = placeIn(known, entry.key);
      if (place == known.end()) continue;
      values_[static_cast<std::size_t>(place - known.begin())] = entry.value;
    }
  }

  const std::optional<Value>& operator[](std::size_t key) const { return values_[key]; }
  /// The offset of a fault: at the value, or at the object that lacks it.
  std::size_t at(std::size_t key) const { return values_[key].value_or(object_).at(); }

 private:
  Value object_;
  std::array<std::optional<Value>, count> values_;
};

class Reader {
 public:
  explicit Reader(const JsonText& json) : json_(json) {}

  Description read() {
    if (!json_.isValid() || !json_.root().isObject()) {
      fault(Part::Root, "plugin root is not an object",
            json_.isValid() ? json_.root().at() : json_.errorAt());
      return std::move(result_);
    }
    const Section root(json_, json_.root(), kRootKeys);
    if (root[kMetadata] && root[kMetadata]->isObject()) {
      readMetadata(Section(json_, *root[kMetadata], kMetadataKeys));
    } else {
      fault(Part::Metadata, "invalid metadata interface", root.at(kMetadata));
    }
    if (root[kOperations] && root[kOperations]->isObject()) {
      readOperations(Section(json_, *root[kOperations], kOperationsKeys));
    } else {
      fault(Part::Operations, "invalid operations interface", root.at(kOperations));
    }
    return std::move(result_);
  }

 private:
  using Metadata = Section<kMetadataKeys.size()>;
  using Operations = Section<kOperationsKeys.size()>;

  void fault(Part part, std::string reason, std::size_t at) {
    result_.faults.push_back({part, std::move(reason), at});
  }

  bool isFrom(std::int32_t version) const {
    return result_.apiVersion && *result_.apiVersion >= version;
  }

  void readMetadata(const Metadata& metadata) {
    readVersion(metadata);
    readNames(metadata, kRequires, Part::Requires, &result_.requires_);
    readNames(metadata, kProvides, Part::Provides, &result_.provides);
    if (!isFrom(kFlagsVersion)) return;
    if (metadata[kRequiredFlags]) {
      readNames(metadata, kRequiredFlags, Part::RequiredFlags, &result_.requiredFlags);
    }
    if (metadata[kDisablingFlags]) {
      readNames(metadata, kDisablingFlags, Part::DisablingFlags, &result_.disablingFlags);
    }
    const std::optional<Value>& runOnce = metadata[kRunOnce];
    if (runOnce && runOnce->isBool()) {
      result_.runOnce = runOnce->boolean();
    } else {
      fault(Part::RunOnce, "metadata is corrupt (unable to parse run_once)", metadata.at(kRunOnce));
    }
    const std::optional<Value>& version = metadata[kPluginVersion];
    if (version && version->isString()) {
      result_.pluginVersion = version->string();
    } else {
      fault(Part::PluginVersion, "metadata is corrupt (unable to parse plugin_version)",
            metadata.at(kPluginVersion));
    }
  }

  void readVersion(const Metadata& metadata) {
    const std::optional<Value>& version = metadata[kVersion];
    if (!version || !version->isNumber()) {
      fault(Part::Version, "metadata is corrupt (unable to parse version)", metadata.at(kVersion));
      return;
    }
    // Truncated only where that is safe.
    const double number = version->number();
    if (!(number >= 1 && number < 5)) {
      fault(Part::Version, "Unsupported API version", metadata.at(kVersion));
      return;
    }
    result_.apiVersion = static_cast<std::int32_t>(number);
  }

  void readNames(const Metadata& metadata, MetadataKey key, Part part,
                 Description::Strings* names) {
    const std::string_view name = kMetadataKeys[key].key;
    const std::optional<Value>& list = metadata[key];
    if (list && list->isArray()) {
      readStrings(*list, part, name, " tag is not a string", names);
    } else {
      fault(part, "metadata is corrupt (unable to parse " + std::string(name) + ")",
            metadata.at(key));
    }
  }

  void readOperations(const Operations& operations) {
    const std::optional<Value>& start = operations[kStart];
    if (start && start->isArray()) {
      readStrings(*start, Part::Start, "command", " is not a string", &result_.startCommands);
    } else {
      fault(Part::Start, "operations is corrupt (unable to parse start)", operations.at(kStart));
    }
    const std::optional<Value>& hostProfile = operations[kApplyHostProfile];
    if (!isFrom(kHostProfileVersion) || !hostProfile) return;
    if (!hostProfile->isArray()) {
      fault(Part::ApplyHostProfile, "operations is corrupt (unable to parse apply-host-profile)",
            hostProfile->at());
      return;
    }
    readStrings(*hostProfile, Part::ApplyHostProfile, "command", " is not a string",
                &result_.applyHostProfileCommands.emplace());
  }

  /// Of a value that is no string it is said that `what` `isNone`.
  void readStrings(const Value& list, Part part, std::string_view what, const char* isNone,
                   Description::Strings* strings) {
    bool isGood = true;
    const JsonText::Range entries = json_.entries(list);
    strings->reserve(entries.size());
    for (const JsonText::Entry& entry : entries) {
      if (!entry.value.isString()) {
        fault(part, std::string(what) + isNone, entry.value.at());
        isGood = false;
      } else if (isGood) {
        strings->push_back({std::string(entry.value.string()), entry.value.at()});
      }
    }
    if (!isGood) strings->clear();
  }

  const JsonText& json_;
  Description result_;
};

template <typename Keys>
void remarkOnKeys(const JsonText& json, const Value& object, const Keys& known,
                  std::optional<std::int32_t> version, std::vector<DescriptionRemark>* remarks) {
  using Kind = DescriptionRemark::Kind;
  std::set<std::string_view> seen;
  std::vector<std::string_view> names;
  for (const KnownKey& key : known) names.push_back(key.key);
  for (const JsonText::Entry& entry : json.entries(object)) {
    const std::string key(entry.key);
    if (!seen.insert(entry.key).second) {
      remarks->push_back({Kind::DuplicateKey, key, entry.keyAt, {}});
    }
    const auto place = placeIn(known, entry.key);
    if (place == known.end()) {
      const auto nearest = nearestNames(entry.key, names);
      remarks->push_back({Kind::UnknownKey, key, entry.keyAt,
                          std::string(nearest.empty() ? std::string_view() : nearest.front())});
    } else if (version && *version < place->since) {
      remarks->push_back({Kind::IgnoredKey, key, entry.keyAt, {}});
    }
  }
}

}  // namespace

const char* unreadableDescription(int error) {
  return error == EFBIG ? "larger than 16 MiB" : "no such file or directory";
}

Description readDescription(const JsonText& json) { return Reader(json).read(); }

std::vector<DescriptionRemark> remarksOn(const JsonText& json, const Description& description) {
  std::vector<DescriptionRemark> remarks;
  if (!json.isValid()) return remarks;
  if (json.hasTrailingText()) {
    remarks.push_back({DescriptionRemark::Kind::TrailingText, {}, json.end(), {}});
  }
  const Value root = json.root();
  if (!root.isObject()) return remarks;
  const std::optional<std::int32_t> version = description.apiVersion;
  remarkOnKeys(json, root, kRootKeys, version, &remarks);
  const Section sections(json, root, kRootKeys);
  if (sections[kMetadata] && sections[kMetadata]->isObject()) {
    remarkOnKeys(json, *sections[kMetadata], kMetadataKeys, version, &remarks);
  }
  if (sections[kOperations] && sections[kOperations]->isObject()) {
    remarkOnKeys(json, *sections[kOperations], kOperationsKeys, version, &remarks);
  }
  return remarks;
}

}  // namespace bootforge
