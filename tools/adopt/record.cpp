#include "tools/adopt/record.h"

#include <algorithm>
#include <boost/json.hpp>
#include <exception>
#include <utility>

#include "util/exception.h"

namespace bootforge::adopt {
namespace {

namespace json = boost::json;

constexpr int kVersion = 1;

std::string stringIn(const json::object& object, const char* key) {
  return json::value_to<std::string>(object.at(key));
}

Lines linesIn(const json::object& object, const char* key) {
  return json::value_to<Lines>(object.at(key));
}

json::object asJson(const Step& step) {
  switch (step.kind) {
    case Step::Kind::kFolder:
      return {{"folder", step.path}};
    case Step::Kind::kLink:
      return {{"link", step.path}, {"target", step.content}};
    case Step::Kind::kFile:
      return {{"file", step.path}, {"content", step.content}};
    case Step::Kind::kChange:
      break;
  }
  json::array changes;
  for (const Change& change : step.changes) {
    changes.push_back(json::object{{"line", change.line + 1},
                                   {"removed", json::value_from(change.removed)},
                                   {"added", json::value_from(change.added)}});
  }
  return {{"change", step.path}, {"original", step.original}, {"changes", std::move(changes)}};
}

std::string pathIn(const json::object& object, const char* key) {
  std::string path = stringIn(object, key);
  if (!path.starts_with('/') || path.ends_with('/')) throw Exception("a path is not absolute");
  return path;
}

Step stepFrom(const json::object& object) {
  Step step;
  if (object.contains("folder")) {
    step.path = pathIn(object, "folder");
  } else if (object.contains("link")) {
    step.kind = Step::Kind::kLink;
    step.path = pathIn(object, "link");
    step.content = stringIn(object, "target");
  } else if (object.contains("file")) {
    step.kind = Step::Kind::kFile;
    step.path = pathIn(object, "file");
    step.content = stringIn(object, "content");
  } else {
    step.kind = Step::Kind::kChange;
    step.path = pathIn(object, "change");
    step.original = pathIn(object, "original");
    for (const json::value& value : object.at("changes").as_array()) {
      const json::object& change = value.as_object();
      step.changes.push_back({json::value_to<std::size_t>(change.at("line")) - 1,
                              linesIn(change, "removed"), linesIn(change, "added")});
      if (step.changes.back().added.empty()) throw Exception("a change adds nothing");
    }
  }
  return step;
}

Record recordFrom(const std::string& text) {
  json::parse_options options;
  options.allow_invalid_utf8 = true;  // the lines of other people's files are kept as they are
  boost::system::error_code error;
  const json::value value = json::parse(text, error, {}, options);
  if (error) throw Exception(error.message());
  const json::object& object = value.as_object();
  if (json::value_to<int>(object.at("version")) != kVersion) {
    throw Exception("it is of another version of bootforge-adopt");
  }
  Record record;
  record.init = stringIn(object, "init");
  for (const json::value& step : object.at("steps").as_array()) {
    record.steps.push_back(stepFrom(step.as_object()));
  }
  if (record.steps.empty()) throw Exception("it has no steps");
  return record;
}

}  // namespace

std::optional<Record> readRecord(const Tree& tree, const std::string& path) {
  const Entry entry = tree.look(path);
  if (!entry.isThere()) return std::nullopt;
  std::string reason = "it is no file";
  try {
    if (entry.isFile()) return recordFrom(entry.content);
  } catch (const std::exception& error) {
    reason = error.what();
    // Where in the library it was thrown is of no use to anybody.
    reason.erase(std::min(reason.find(" [boost"), reason.size()));
  }
  throw Exception(path + ": this is no record of bootforge-adopt: " + reason);
}

std::string textOf(const Record& record) {
  std::string text = "{\"version\": " + std::to_string(kVersion) + ", \"init\": \"" + record.init +
                     "\", \"steps\": [\n";
  for (const Step& step : record.steps) {
    text += json::serialize(asJson(step));
    text += &step == &record.steps.back() ? "\n" : ",\n";
  }
  return text + "]}\n";
}

}  // namespace bootforge::adopt
