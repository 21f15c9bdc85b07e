#include "platform/linux/command_file.h"

#include <algorithm>
#include <boost/json/stream_parser.hpp>
#include <boost/json/value.hpp>
#include <initializer_list>
#include <stdexcept>

#include "reading/json_comments.h"

namespace host_linux {
namespace {

namespace json = boost::json;

[[noreturn]] void fail(const std::string& where, const std::string& reason) {
  throw std::invalid_argument(where.empty() ? reason : where + ": " + reason);
}

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

json::value parseJson(std::string_view file) {
  std::string text(file);
  bootforge::blankComments(text);
  json::parse_options options;
  options.allow_invalid_utf8 = true;
  options.max_depth = 4096;
  json::stream_parser parser({}, options);
  boost::system::error_code error;
  std::size_t used = parser.write_some(text.data(), text.size(), error);
  if (!error && used < text.size()) error = json::error::extra_data;
  if (!error) parser.finish(error);
  if (!error) return parser.release();
  // Counted in the file itself: a comment there may have several lines.
  auto line = 1 + std::count(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(used), '\n');
  fail("line " + std::to_string(line), error.message());
}

const json::object& asObject(const json::value& value, const std::string& where) {
  if (!value.is_object()) fail(where, "is no object");
  return value.get_object();
}

/// A string without zero bytes, which no program's argument could hold.
std::string asString(const json::value& value, const std::string& where) {
  if (!value.is_string()) fail(where, "is no string");
  std::string text(value.get_string());
  if (text.find('\0') != std::string::npos) fail(where, "holds a zero byte");
  return text;
}

std::string stringOr(const json::object& object, std::string_view key, const std::string& where) {
  const json::value* value = object.if_contains(key);
  return value ? asString(*value, where + ": " + quoted(key)) : std::string();
}

bool boolOr(const json::object& object, std::string_view key, const std::string& where) {
  const json::value* value = object.if_contains(key);
  if (!value) return false;
  if (!value->is_bool()) fail(where + ": " + quoted(key), "is neither true nor false");
  return value->get_bool();
}

using Remarks = std::vector<std::string>;

/// Remarks on keys that mean nothing: a misspelt one would otherwise change nothing in silence.
void expectOnly(std::initializer_list<std::string_view> keys, const json::object& object,
                const std::string& where, Remarks& remarks) {
  for (const json::key_value_pair& entry : object) {
    std::string_view key = entry.key();
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
      remarks.push_back((where.empty() ? "" : where + ": ") + "unknown key " + quoted(key));
    }
  }
}

/// True for what a command line can say: no blanks, not empty, and not taken for an option.
bool isWord(std::string_view text) {
  return !text.empty() && text.front() != '-' && std::none_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7f;
  });
}

Parameter readParameter(std::string_view name, const json::value& value, const std::string& where,
                        Remarks& remarks) {
  if (!isWord(name) || name.find_first_of("={}") != std::string_view::npos) {
    fail(where, "this is no name for a parameter");
  }
  const json::object& object = asObject(value, where);
  expectOnly({"short", "required", "flag", "summary"}, object, where, remarks);
  Parameter parameter;
  parameter.name = name;
  parameter.shortName = stringOr(object, "short", where);
  if (object.contains("short") && (parameter.shortName.size() != 1 ||
                                   !isWord(parameter.shortName) || parameter.shortName == "=")) {
    fail(where + ": \"short\"", "is not one letter");
  }
  parameter.summary = stringOr(object, "summary", where);
  parameter.required = boolOr(object, "required", where);
  parameter.flag = boolOr(object, "flag", where);
  return parameter;
}

/// Names and short names are told apart by nothing but themselves.
void checkNames(const std::vector<Parameter>& parameters, const std::string& where) {
  for (const Parameter& parameter : parameters) {
    if (parameter.shortName.empty()) continue;
    for (const Parameter& other : parameters) {
      if (&other != &parameter &&
          (other.name == parameter.shortName || other.shortName == parameter.shortName)) {
        fail(where, "parameters " + quoted(parameter.name) + " and " + quoted(other.name) +
                        " share the name " + quoted(parameter.shortName));
      }
    }
  }
}

void readExec(const json::object& object, const std::string& where, Command* command) {
  const json::value* exec = object.if_contains("exec");
  if (!exec) fail(where, "\"exec\" is missing");
  if (!exec->is_array() || exec->get_array().empty()) {
    fail(where + ": \"exec\"", "is no list of a program and its arguments");
  }
  const json::array& words = exec->get_array();
  for (std::size_t i = 0; i < words.size(); ++i) {
    std::string place = where + ": \"exec\" word " + std::to_string(i + 1);
    std::string text = asString(words[i], place);
    try {
      command->arguments.push_back(parseArgument(text, command->parameters));
    } catch (const std::invalid_argument& error) {
      fail(place, error.what());
    }
  }
  const std::vector<Piece>& program = command->arguments.front();
  if (program.size() != 1 || program[0].parameter || !program[0].text.starts_with('/')) {
    fail(where + ": \"exec\" word 1", "is no absolute path of a program");
  }
  command->program = program[0].text;
  command->arguments.erase(command->arguments.begin());
}

Command readCommand(const json::value& value, const std::string& where, Remarks& remarks) {
  const json::object& object = asObject(value, where);
  expectOnly({"summary", "parameters", "exec"}, object, where, remarks);
  Command command;
  command.summary = stringOr(object, "summary", where);
  if (const json::value* parameters = object.if_contains("parameters")) {
    for (const json::key_value_pair& entry : asObject(*parameters, where + ": \"parameters\"")) {
      command.parameters.push_back(readParameter(
          entry.key(), entry.value(), where + ": parameter " + quoted(entry.key()), remarks));
    }
    checkNames(command.parameters, where);
  }
  readExec(object, where, &command);
  return command;
}

std::vector<std::string> readNamespace(const json::object& file) {
  const json::value* value = file.if_contains("namespace");
  if (!value) fail("", "\"namespace\" is missing");
  std::string text = asString(*value, "\"namespace\"");
  std::vector<std::string> nameSpace;
  for (std::size_t begin = 0, end = 0; end < text.size(); begin = end + 1) {
    end = std::min(text.find(' ', begin), text.size());
    if (begin == end) continue;
    nameSpace.push_back(text.substr(begin, end - begin));
    if (!isWord(nameSpace.back())) {
      fail("\"namespace\"", quoted(nameSpace.back()) + " is no word of a command line");
    }
  }
  if (nameSpace.empty()) fail("\"namespace\"", "is empty");
  return nameSpace;
}

}  // namespace

CommandFile parseCommandFile(std::string_view text) {
  json::value root = parseJson(text);
  const json::object& object = asObject(root, "the file");
  CommandFile file;
  expectOnly({"namespace", "commands"}, object, "", file.remarks);
  file.nameSpace = readNamespace(object);
  const json::value* commands = object.if_contains("commands");
  if (!commands) fail("", "\"commands\" is missing");
  for (const json::key_value_pair& entry : asObject(*commands, "\"commands\"")) {
    std::string where = "command " + quoted(entry.key());
    if (!isWord(entry.key())) fail(where, "this is no word of a command line");
    file.commands.emplace_back(entry.key(), readCommand(entry.value(), where, file.remarks));
  }
  return file;
}

}  // namespace host_linux
