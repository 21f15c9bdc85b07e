#include "analyze/output/json_output.h"

#include <boost/json/serialize.hpp>

#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

void write(const json::value& value, std::size_t indent, std::string& text) {
  const auto newLine = [&text](std::size_t depth) { text += '\n' + std::string(2 * depth, ' '); };
  const char* separator = "";
  if (value.is_object() && !value.get_object().empty()) {
    text += '{';
    for (const json::key_value_pair& entry : value.get_object()) {
      text += separator;
      newLine(indent + 1);
      text += json::serialize(json::string(entry.key())) + ": ";
      write(entry.value(), indent + 1, text);
      separator = ",";
    }
    newLine(indent);
    text += '}';
  } else if (value.is_array() && !value.get_array().empty()) {
    // Lists of names and numbers stay on one line.
    const json::array& list = value.get_array();
    const bool isFlat = !list.front().is_object() && !list.front().is_array();
    text += '[';
    for (const json::value& element : list) {
      text += separator;
      if (!isFlat) newLine(indent + 1);
      write(element, indent + 1, text);
      separator = isFlat ? ", " : ",";
    }
    if (!isFlat) newLine(indent);
    text += ']';
  } else {
    text += json::serialize(value);
  }
}

}  // namespace

json::string jsonText(std::string_view text) { return json::string(validUtf8(text)); }

json::array jsonTexts(const std::vector<std::string>& texts) {
  json::array list;
  list.reserve(texts.size());
  for (const std::string& text : texts) list.emplace_back(jsonText(text));
  return list;
}

std::string prettyJson(const json::value& value) {
  std::string text;
  write(value, 0, text);
  return text + '\n';
}

}  // namespace bootforge::analyze
