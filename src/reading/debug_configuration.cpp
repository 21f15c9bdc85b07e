#include "reading/debug_configuration.h"

#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>

namespace bootforge {
namespace {

/// A field's names: separated by commas, with backslash escapes and both kinds of quotes. Throws
/// boost::escaped_list_error.
std::vector<std::string> splitNames(const std::string& field) {
  const std::string text = boost::algorithm::trim_copy(field);
  const boost::escaped_list_separator<char> rules("\\", ",", "\"'");
  const boost::tokenizer<boost::escaped_list_separator<char>> names(text, rules);
  return {names.begin(), names.end()};
}

void readFields(DebugLine& line) {
  const boost::char_separator<char> colon(":");  // drops empty fields
  const boost::tokenizer<boost::char_separator<char>> tokens(line.text, colon);
  const std::vector<std::string> fields(tokens.begin(), tokens.end());
  if (fields.size() != 4) return;
  try {
    line.entry = DebugEntry{fields[0], splitNames(fields[1]), splitNames(fields[2]), fields[3]};
  } catch (const boost::escaped_list_error& error) {
    line.badEscape = error.what();
  }
}

}  // namespace

std::vector<DebugLine> readDebugConfiguration(std::string_view text) {
  std::vector<DebugLine> lines;
  std::size_t at = 0;
  for (int number = 1; at < text.size(); ++number) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    DebugLine& line = lines.emplace_back();
    line.number = number;
    line.text = text.substr(at, end - at);
    boost::algorithm::trim_left(line.text);
    line.at = end - line.text.size();
    boost::algorithm::trim_right(line.text);
    readFields(line);
    at = end + 1;
  }
  return lines;
}

}  // namespace bootforge
