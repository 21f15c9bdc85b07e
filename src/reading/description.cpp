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

// The known keys of each object, with the version from which on they mean something.
struct KnownKey {
  std::string_view key;
  std::int32_t since = 1;
};
constexpr std::array kRootKeys{KnownKey{"metadata"}, KnownKey{"operations"}};
constexpr std::array kMetadataKeys{
    KnownKey{"version"},
    KnownKey{"requires"},
    KnownKey{"provides"},
    KnownKey{"required_flags", kFlagsVersion},
    KnownKey{"disabling_flags", kFlagsVersion},
    KnownKey{"run_once", kFlagsVersion},
    KnownKey{"plugin_version", kFlagsVersion},
};
constexpr std::array kOperationsKeys{KnownKey{"start"},
                                     KnownKey{"apply_host_profile", kHostProfileVersion}};

class Reader {
 public:
  explicit Reader(const JsonText& json) : json_(json) {}

  Description read() {
    if (!json_.isValid() || !json_.root().isObject()) {
      fault(Part::Root, "plugin root is not an object",
            json_.isValid() ? json_.root().at() : json_.errorAt());
      return std::move(result_);
    }
    const Value root = json_.root();
    Value section = root;
    if (readSection(root, "metadata", Part::Metadata, "invalid metadata interface", &section)) {
      readMetadata(section);
    }
    if (readSection(root, "operations", Part::Operations, "invalid operations interface",
                    &section)) {
      readOperations(section);
    }
    return std::move(result_);
  }

 private:
  void fault(Part part, std::string reason, std::size_t at) {
    result_.faults.push_back({part, std::move(reason), at});
  }

  bool isFrom(std::int32_t version) const {
    return result_.apiVersion && *result_.apiVersion >= version;
  }

  bool readSection(const Value& root, std::string_view key, Part part, const char* reason,
                   Value* section) {
    Value found = root;
    const bool isThere = json_.find(root, key, &found);
    if (!isThere || !found.isObject()) {
      fault(part, reason, found.at());
      return false;
    }
    *section = found;
    return true;
  }

  void readMetadata(const Value& metadata) {
    readVersion(metadata);
    readNames(metadata, "requires", Part::Requires, &result_.requires_);
    readNames(metadata, "provides", Part::Provides, &result_.provides);
    if (!isFrom(kFlagsVersion)) return;
    Value value = metadata;
    if (json_.find(metadata, "required_flags", &value)) {
      readNames(metadata, "required_flags", Part::RequiredFlags, &result_.requiredFlags);
    }
    if (json_.find(metadata, "disabling_flags", &value)) {
      readNames(metadata, "disabling_flags", Part::DisablingFlags, &result_.disablingFlags);
    }
    value = metadata;
    if (json_.find(metadata, "run_once", &value) && value.isBool()) {
      result_.runOnce = value.boolean();
    } else {
      fault(Part::RunOnce, "metadata is corrupt (unable to parse run_once)", value.at());
    }
    value = metadata;
    if (json_.find(metadata, "plugin_version", &value) && value.isString()) {
      result_.pluginVersion = value.string();
    } else {
      fault(Part::PluginVersion, "metadata is corrupt (unable to parse plugin_version)",
            value.at());
    }
  }

  void readVersion(const Value& metadata) {
    Value value = metadata;
    if (!json_.find(metadata, "version", &value) || !value.isNumber()) {
      fault(Part::Version, "metadata is corrupt (unable to parse version)", value.at());
      return;
    }
    // Truncated only where that is safe.
    const double number = value.number();
    if (!(number >= 1 && number < 5)) {
      fault(Part::Version, "Unsupported API version", value.at());
      return;
    }
    result_.apiVersion = static_cast<std::int32_t>(number);
  }

  void readNames(const Value& metadata, std::string_view key, Part part,
                 Description::Strings* names) {
    Value value = metadata;
    if (!json_.find(metadata, key, &value) || !value.isArray()) {
      fault(part, "metadata is corrupt (unable to parse " + std::string(key) + ")", value.at());
      return;
    }
    readStrings(value, part, key, " tag is not a string", names);
  }

  void readOperations(const Value& operations) {
    Value value = operations;
    if (json_.find(operations, "start", &value) && value.isArray()) {
      readStrings(value, Part::Start, "command", " is not a string", &result_.startCommands);
    } else {
      fault(Part::Start, "operations is corrupt (unable to parse start)", value.at());
    }
    if (!isFrom(kHostProfileVersion)) return;
    if (!json_.find(operations, "apply_host_profile", &value)) return;
    if (!value.isArray()) {
      fault(Part::ApplyHostProfile, "operations is corrupt (unable to parse apply-host-profile)",
            value.at());
      return;
    }
    readStrings(value, Part::ApplyHostProfile, "command", " is not a string",
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
    const auto place = std::find_if(known.begin(), known.end(),
                                    [&](const KnownKey& other) { return other.key == entry.key; });
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
  Value section = root;
  if (json.find(root, "metadata", &section) && section.isObject()) {
    remarkOnKeys(json, section, kMetadataKeys, version, &remarks);
  }
  if (json.find(root, "operations", &section) && section.isObject()) {
    remarkOnKeys(json, section, kOperationsKeys, version, &remarks);
  }
  return remarks;
}

}  // namespace bootforge
