#include <cerrno>
#include <unordered_map>

#include "analyze/verify/checks.h"
#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

using Remark = DescriptionRemark::Kind;

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

void checkDescription(const PluginFile& file, Reporter& reporter) {
  const std::string& name = file.entry.baseName;
  if (file.error != 0) {
    const std::string reason = unreadableDescription(file.error);
    const std::string why =
        file.error == ENOENT || file.error == EFBIG ? "" : " (" + systemErrorText(file.error) + ")";
    reporter.add("description-unreadable", file.path, name, reason + why);
    return;
  }
  TextReporter text(reporter, file.path, file.text);
  if (!file.syntaxError.empty()) {
    text.add("description-syntax", file.syntaxErrorAt, name,
             file.description.faults.front().reason + " (" + file.syntaxError + ")");
    return;
  }
  for (const Description::Fault& fault : file.description.faults) {
    text.add("description-invalid", fault.at, name, fault.reason);
  }
  TextReporter remarks(reporter, file.path, file.text);
  for (const DescriptionRemark& remark : file.remarks) {
    switch (remark.kind) {
      case Remark::UnknownKey: {
        Finding& finding = remarks.add("description-unknown-key", remark.at, name,
                                       "the key " + quoted(remark.key) + " is not known");
        if (!remark.nearest.empty()) finding.help = "Did you mean " + quoted(remark.nearest) + "?";
        break;
      }
      case Remark::DuplicateKey:
        remarks.add("description-duplicate-key", remark.at, name,
                    "the key " + quoted(remark.key) + " is given twice");
        break;
      case Remark::IgnoredKey:
        remarks.add("description-ignored-key", remark.at, name,
                    "the key " + quoted(remark.key) + " means nothing in version " +
                        std::to_string(file.description.apiVersion.value()));
        break;
      case Remark::TrailingText:
        remarks.add("description-trailing", remark.at, name,
                    "text behind the description is ignored");
        break;
    }
  }
}

void checkType(const PluginFile& file, Reporter& reporter) {
  if (file.entry.kind == Entry::Kind::NoType) {
    reporter.add("plugin-unknown-type", file.path, file.name,
                 "ignoring plugin '" + file.name + "' of unspecified type...");
  } else if (file.entry.kind == Entry::Kind::UnknownType) {
    reporter.add(
        "plugin-unknown-type", file.path, file.name,
        "ignoring plugin '" + file.name + "' of unknown type (" + file.entry.extension + ")...");
  }
}

}  // namespace

void checkFiles(const Image& image, Reporter& reporter) {
  if (image.pluginDirectoryError() != 0) {
    reporter.add(
        "folder-unreadable", image.pluginDirectory(), image.pluginDirectory(),
        "the plugin folder cannot be read: " + systemErrorText(image.pluginDirectoryError()));
  }
  std::unordered_map<std::string, const PluginFile*> byName;
  for (const PluginFile& file : image.files()) {
    checkType(file, reporter);
    if (file.entry.kind == Entry::Kind::Json) checkDescription(file, reporter);
    if (!file.hasPlugin() && !file.hasInjection) continue;
    const auto [first, isNew] = byName.emplace(file.entry.baseName, &file);
    if (isNew) continue;
    reporter.add(
        "plugin-same-name", file.path, file.entry.baseName,
        "the plugin " + quoted(file.entry.baseName) + " is also that of " + first->second->path);
  }
}

}  // namespace bootforge::analyze
