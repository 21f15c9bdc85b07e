#include "platform/linux/command_file.h"

#include <algorithm>
#include <boost/json/error.hpp>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <unordered_map>

#include "reading/place.h"

namespace host_linux {
namespace {

using bootforge::JsonText;
using Value = JsonText::Value;

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

/// True for what a command line can say: no blanks, not empty, and not taken for an option.
bool isWord(std::string_view text) {
  return !text.empty() && text.front() != '-' && std::none_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7f;
  });
}

/// Goes through a file once and notes everything that is wrong with it.
class Reader {
 public:
  explicit Reader(const JsonText& json) : json_(json) {}

  CommandFile read() {
    if (const std::string error = syntaxError(); !error.empty()) {
      const std::size_t at = json_.isValid() ? json_.end() : json_.errorAt();
      const std::size_t line = bootforge::placeOf(json_.text(), at).line;
      fault("line " + std::to_string(line), error, at);
      return std::move(file_);
    }
    const Value root = json_.root();
    if (!isObject(root, "the file")) return std::move(file_);
    expectOnly({"namespace", "commands"}, root, "");
    readNamespace(root);
    Value commands = root;
    if (!json_.find(root, "commands", &commands)) {
      fault("", "\"commands\" is missing", root.at());
    } else if (isObject(commands, "\"commands\"")) {
      for (const JsonText::Entry& entry : json_.lastEntries(commands)) readCommand(entry);
    }
    return std::move(file_);
  }

 private:
  std::string syntaxError() const {
    if (!json_.isValid()) return json_.error();
    if (!json_.hasTrailingText()) return {};
    return boost::json::make_error_code(boost::json::error::extra_data).message();
  }

  void fault(const std::string& where, const std::string& reason, std::size_t at) {
    file_.faults.push_back({where.empty() ? reason : where + ": " + reason, at});
  }

  /// Remarks on keys that mean nothing: a misspelt one would otherwise change nothing in silence.
  void expectOnly(std::initializer_list<std::string_view> keys, const Value& object,
                  const std::string& where) {
    for (const JsonText::Entry& entry : json_.lastEntries(object)) {
      if (std::find(keys.begin(), keys.end(), entry.key) != keys.end()) continue;
      file_.remarks.push_back(
          {(where.empty() ? "" : where + ": ") + "unknown key " + quoted(entry.key), entry.keyAt});
    }
  }

  bool isObject(const Value& value, const std::string& where) {
    if (!value.isObject()) fault(where, "is no object", value.at());
    return value.isObject();
  }

  /// A string without zero bytes, which no program's argument could hold.
  std::optional<std::string> stringIn(const Value& value, const std::string& where) {
    if (!value.isString()) {
      fault(where, "is no string", value.at());
      return std::nullopt;
    }
    if (value.string().find('\0') != std::string_view::npos) {
      fault(where, "holds a zero byte", value.at());
      return std::nullopt;
    }
    return std::string(value.string());
  }

  std::string stringOr(const Value& object, std::string_view key, const std::string& where) {
    Value value = object;
    if (!json_.find(object, key, &value)) return {};
    return stringIn(value, where + ": " + quoted(key)).value_or("");
  }

  bool boolOr(const Value& object, std::string_view key, const std::string& where) {
    Value value = object;
    if (!json_.find(object, key, &value)) return false;
    if (value.isBool()) return value.boolean();
    fault(where + ": " + quoted(key), "is neither true nor false", value.at());
    return false;
  }

  void readNamespace(const Value& root) {
    Value value = root;
    if (!json_.find(root, "namespace", &value)) {
      fault("", "\"namespace\" is missing", root.at());
      return;
    }
    const std::optional<std::string> text = stringIn(value, "\"namespace\"");
    if (!text) return;
    for (std::size_t begin = 0, end = 0; begin < text->size(); begin = end + 1) {
      end = std::min(text->find(' ', begin), text->size());
      if (begin == end) continue;
      const std::string& word = file_.nameSpace.emplace_back(text->substr(begin, end - begin));
      if (isWord(word)) continue;
      fault("\"namespace\"", quoted(word) + " is no word of a command line", value.at());
    }
    if (file_.nameSpace.empty()) fault("\"namespace\"", "is empty", value.at());
  }

  void readCommand(const JsonText::Entry& entry) {
    const std::string where = "command " + quoted(entry.key);
    if (!isWord(entry.key)) fault(where, "this is no word of a command line", entry.keyAt);
    const Value& object = entry.value;
    if (!isObject(object, where)) return;
    expectOnly({"summary", "parameters", "exec", "timeout"}, object, where);
    CommandFile::Definition definition{std::string(entry.key), {}, object.at(), object.at()};
    Command& command = definition.command;
    command.summary = stringOr(object, "summary", where);
    Value parameters = object;
    if (json_.find(object, "parameters", &parameters) &&
        isObject(parameters, where + ": \"parameters\"")) {
      readParameters(parameters, where, &command);
    }
    readExec(object, where, &definition);
    readTimeout(object, where, &command);
    file_.commands.push_back(std::move(definition));
  }

  void readParameters(const Value& object, const std::string& where, Command* command) {
    for (const JsonText::Entry& entry : json_.lastEntries(object)) {
      command->parameters.push_back(
          readParameter(entry, where + ": parameter " + quoted(entry.key)));
    }
    checkNames(command->parameters, object, where);
  }

  Parameter readParameter(const JsonText::Entry& entry, const std::string& where) {
    Parameter parameter;
    parameter.name = entry.key;
    if (!isWord(entry.key) || entry.key.find_first_of("={}") != std::string_view::npos) {
      fault(where, "this is no name for a parameter", entry.keyAt);
    }
    const Value& object = entry.value;
    if (!isObject(object, where)) return parameter;
    expectOnly({"short", "required", "flag", "summary"}, object, where);
    Value value = object;
    if (json_.find(object, "short", &value)) {
      const std::string place = where + ": \"short\"";
      const std::optional<std::string> letter = stringIn(value, place);
      if (letter && letter->size() == 1 && isWord(*letter) && *letter != "=") {
        parameter.shortName = *letter;
      } else if (letter) {
        fault(place, "is not one letter", value.at());
      }
    }
    parameter.summary = stringOr(object, "summary", where);
    parameter.required = boolOr(object, "required", where);
    parameter.flag = boolOr(object, "flag", where);
    return parameter;
  }

  /// Names and short names are told apart by nothing but themselves.
  void checkNames(const std::vector<Parameter>& parameters, const Value& object,
                  const std::string& where) {
    std::unordered_map<std::string_view, std::size_t> names;
    std::unordered_map<std::string_view, std::vector<std::size_t>> letters;
    for (std::size_t i = 0; i < parameters.size(); ++i) {
      names.emplace(parameters[i].name, i);
      if (!parameters[i].shortName.empty()) letters[parameters[i].shortName].push_back(i);
    }
    for (std::size_t i = 0; i < parameters.size(); ++i) {
      const std::string& letter = parameters[i].shortName;
      if (letter.empty()) continue;
      const std::vector<std::size_t>& same = letters[letter];
      const auto named = names.find(letter);
      std::size_t other = named == names.end() || named->second == i ? SIZE_MAX : named->second;
      // Of those that share a letter the first one tells.
      if (same.front() == i && same.size() > 1) other = std::min(other, same[1]);
      if (same.front() != i && other == SIZE_MAX) continue;
      if (same.front() != i) other = std::min(other, same.front());
      if (other != SIZE_MAX) share(parameters[i], parameters[other], object, where);
    }
  }

  void share(const Parameter& one, const Parameter& other, const Value& object,
             const std::string& where) {
    Value place = object;
    json_.find(object, other.name, &place);
    fault(where,
          "parameters " + quoted(one.name) + " and " + quoted(other.name) + " share the name " +
              quoted(one.shortName),
          place.at());
  }

  void readExec(const Value& object, const std::string& where,
                CommandFile::Definition* definition) {
    Value exec = object;
    if (!json_.find(object, "exec", &exec)) {
      fault(where, "\"exec\" is missing", object.at());
      return;
    }
    if (!exec.isArray() || json_.entries(exec).empty()) {
      fault(where + ": \"exec\"", "is no list of a program and its arguments", exec.at());
      return;
    }
    std::size_t number = 0;
    for (const JsonText::Entry& entry : json_.entries(exec)) {
      const std::string place = where + ": \"exec\" word " + std::to_string(++number);
      std::vector<Piece> pieces;
      const bool isRead = readWord(entry.value, place, definition->command.parameters, &pieces);
      if (number > 1) {
        definition->command.arguments.push_back(std::move(pieces));
        continue;
      }
      definition->programAt = entry.value.at();
      if (!isRead) continue;
      if (pieces.size() == 1 && !pieces[0].parameter && pieces[0].text.starts_with('/')) {
        definition->command.program = pieces[0].text;
      } else {
        fault(place, "is no absolute path of a program", entry.value.at());
      }
    }
  }

  bool readWord(const Value& value, const std::string& place,
                const std::vector<Parameter>& parameters, std::vector<Piece>* pieces) {
    const std::optional<std::string> text = stringIn(value, place);
    if (!text) return false;
    try {
      *pieces = parseArgument(*text, parameters);
      return true;
    } catch (const std::invalid_argument& error) {
      fault(place, error.what(), value.at());
      return false;
    }
  }

  void readTimeout(const Value& object, const std::string& where, Command* command) {
    Value value = object;
    if (!json_.find(object, "timeout", &value)) return;
    if (value.isNumber() && value.number() > 0) {
      command->timeout = value.number();
    } else {
      fault(where + ": \"timeout\"", "is no number of seconds above 0", value.at());
    }
  }

  const JsonText& json_;
  CommandFile file_;
};

}  // namespace

CommandFile readCommandFile(const JsonText& json) { return Reader(json).read(); }

CommandFile parseCommandFile(std::string_view text) {
  CommandFile file = readCommandFile(JsonText(std::string(text)));
  if (!file.faults.empty()) throw std::invalid_argument(file.faults.front().text);
  return file;
}

}  // namespace host_linux
