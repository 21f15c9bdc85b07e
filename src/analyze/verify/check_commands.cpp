#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include "analyze/verify/checks.h"
#include "cli/control_socket.h"
#include "platform/linux/command_line.h"
#include "platform/linux/command_runner.h"
#include "reading/nearest.h"
#include "util/system_error.h"

namespace bootforge::analyze {
namespace {

using host_linux::BindingError;

std::string_view ruleOf(BindingError::Kind kind) {
  switch (kind) {
    case BindingError::Kind::UnknownCommand:
      return "command-unknown";
    case BindingError::Kind::MissingParameter:
      return "command-parameter-missing";
    case BindingError::Kind::UnknownParameter:
    case BindingError::Kind::ValueOfFlag:
    case BindingError::Kind::ZeroByte:
      break;
  }
  return "command-parameter-unknown";
}

std::string question(const std::vector<std::string_view>& names) {
  std::string text;
  for (const std::string_view name : names) {
    text += text.empty() ? "Did you mean " : ", or ";
    text += '"' + std::string(name) + '"';
  }
  return text.empty() ? text : text + "?";
}

/// Judges command lines as the executor would.
class CommandLines {
 public:
  CommandLines(const CommandCatalogue& commands, Reporter& reporter)
      : commands_(commands), reporter_(reporter) {
    for (const auto& [path, entry] : commands.registry.commands()) {
      names_.push_back(host_linux::joinWords(path));
    }
  }

  void check(const PluginFile& file) {
    TextReporter text(reporter_, file.path, file.text);
    for (const PlacedString& line : file.description.startCommands) check(line, text);
    if (!file.description.applyHostProfileCommands) return;
    for (const PlacedString& line : *file.description.applyHostProfileCommands) check(line, text);
  }

  /// Commands that were used and may run for ever.
  void reportEndless() {
    std::unique_ptr<TextReporter> text;
    const CommandSource* last = nullptr;
    for (const auto& [source, index] : endless_) {
      const CommandSource& file = commands_.sources[source];
      if (last != &file) text = std::make_unique<TextReporter>(reporter_, file.path, file.text);
      last = &file;
      const host_linux::CommandFile::Definition& definition = file.file.commands[index];
      const std::string name = host_linux::joinWords(commands_.pathOf(source, index));
      text->add("command-no-timeout", definition.at, name,
                "plugins use the command \"" + name + "\", which has no time limit");
    }
  }

 private:
  void check(const PlacedString& line, TextReporter& text) {
    // What goes over the socket ends at a zero byte. What is too long is judged as it stands: that
    // it is cut has been said.
    const std::string sent = line.text.c_str();
    const host_linux::CommandLine parsed = host_linux::parseLine(sent);
    const std::string name = parsed.errors.empty() ? host_linux::joinWords(parsed.path) : sent;
    if (sent.size() > kRequestLimit) {
      text.add("command-too-long", line.at, name,
               "the command line has " + std::to_string(sent.size()) +
                   " bytes, and would be cut at " + std::to_string(kRequestLimit));
    }
    if (isStopRequest(sent.c_str())) {
      text.add("command-is-stop", line.at, sent,
               "the command line begins with \"" + sent.substr(0, kStopRequest.size()) +
                   "\", which stops the executor");
      return;
    }
    for (const std::string& error : parsed.errors) {
      text.add("command-syntax", line.at, name, error);
    }
    if (!parsed.errors.empty()) return;
    const host_linux::BoundCommand bound =
        host_linux::bindCommand(commands_.registry, parsed.path, parsed.parameters);
    for (const BindingError& error : bound.errors) {
      text.add(ruleOf(error.kind), line.at, name, error.text).help = helpFor(error, parsed.path);
    }
    const auto place = commands_.places.find(parsed.path);
    if (place == commands_.places.end()) return;
    const auto& [source, definition] = place->second;
    if (!commands_.sources[source].file.commands[definition].command.timeout) {
      endless_.emplace(source, definition);
    }
  }

  std::string helpFor(const BindingError& error, const std::vector<std::string>& path) const {
    if (error.kind == BindingError::Kind::UnknownCommand) {
      return question(nearestNames(error.name, {names_.begin(), names_.end()}));
    }
    if (error.kind != BindingError::Kind::UnknownParameter) return {};
    std::vector<std::string_view> names;
    for (const host_linux::Parameter& parameter : commands_.registry.find(path)->parameters) {
      names.push_back(parameter.name);
    }
    return question(nearestNames(error.name, names));
  }

  const CommandCatalogue& commands_;
  Reporter& reporter_;
  std::vector<std::string> names_;
  std::set<std::pair<std::size_t, std::size_t>> endless_;
};

void checkPrograms(const Image& image, const CommandCatalogue& commands, Reporter& reporter) {
  std::map<std::string, std::optional<FileStatus>> programs;
  for (std::size_t i = 0; i < commands.sources.size(); ++i) {
    const CommandSource& source = commands.sources[i];
    if (!source.isGood()) continue;
    TextReporter text(reporter, source.path, source.text);
    for (std::size_t j = 0; j < source.file.commands.size(); ++j) {
      const std::vector<std::string> path = commands.pathOf(i, j);
      const CommandPlace& place = commands.places.at(path);
      if (place.source != i || place.definition != j) continue;
      const std::string& program = source.file.commands[j].command.program;
      const auto [known, isNew] = programs.try_emplace(program);
      if (isNew) known->second = image.root().status(program);
      if (known->second && known->second->isExecutable()) continue;
      text.add("command-program-missing", source.file.commands[j].programAt,
               host_linux::joinWords(path),
               "the program " + program +
                   (known->second ? " is no executable file" : " is not in the image"));
    }
  }
}

}  // namespace

void checkCommandFiles(const Image& image, const CommandCatalogue& commands, Reporter& reporter) {
  for (const CommandCatalogue::Folder& folder : commands.folders) {
    if (folder.error == 0) continue;
    reporter.add("folder-unreadable", folder.path, folder.path,
                 "the command folder cannot be read: " + systemErrorText(folder.error));
  }
  for (const CommandSource& source : commands.sources) {
    const std::string name = host_linux::joinWords(source.file.nameSpace);
    if (!source.unreadable.empty()) {
      reporter.add("command-file-invalid", source.path, name, source.unreadable);
      continue;
    }
    TextReporter text(reporter, source.path, source.text);
    for (const auto& fault : source.file.faults) {
      text.add("command-file-invalid", fault.at, name, fault.text);
    }
    TextReporter remarks(reporter, source.path, source.text);
    for (const auto& remark : source.file.remarks) {
      remarks.add("command-file-unknown-key", remark.at, name, remark.text + " is ignored");
    }
  }
  for (const CommandCatalogue::Shadowed& shadowed : commands.shadowed) {
    const CommandSource& source = commands.sources[shadowed.by.source];
    const std::string name = host_linux::joinWords(shadowed.path);
    TextReporter text(reporter, source.path, source.text);
    text.add("command-shadowed", source.file.commands[shadowed.by.definition].at, name,
             "command \"" + name + "\" takes the place of that of " + shadowed.file);
  }
  checkPrograms(image, commands, reporter);
}

void checkCommandLines(const Image& image, const CommandCatalogue& commands, Reporter& reporter) {
  CommandLines lines(commands, reporter);
  for (const PluginFile& file : image.files()) {
    if (file.takesPart() && file.entry.kind == Entry::Kind::Json) lines.check(file);
  }
  lines.reportEndless();
}

}  // namespace bootforge::analyze
