#include "plugins/debug_configuration.h"

#include <sys/stat.h>

#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/log.h"
#include "util/regular_file.h"

namespace bootforge {
namespace {

constexpr const char* kDebugConfiguration = "/etc/nimbus/bootforge/debug.conf";

/// A field's names: separated by commas, with backslash escapes and both kinds of quotes.
std::list<std::string> splitNames(const std::string& field) {
  const std::string text = boost::algorithm::trim_copy(field);
  const boost::escaped_list_separator<char> rules("\\", ",", "\"'");
  const boost::tokenizer<boost::escaped_list_separator<char>> names(text, rules);
  return {names.begin(), names.end()};
}

}  // namespace

std::list<DebugEntry> loadDebugEntries() {
  std::list<DebugEntry> entries;
  // This is read again for every file of the plugin directory, and most hosts have none: to ask for
  // it costs half of what the attempt to open it does.
  struct stat status {};
  if (::stat(kDebugConfiguration, &status) != 0) return entries;
  const std::optional<std::string> text = readRegularFile(kDebugConfiguration);
  if (!text) return entries;
  std::string_view rest = *text;
  for (int number = 1; !rest.empty(); ++number) {
    const std::size_t end = rest.find('\n');
    std::string line(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    boost::algorithm::trim(line);
    const boost::char_separator<char> colon(":");  // drops empty fields
    const boost::tokenizer<boost::char_separator<char>> tokens(line, colon);
    const std::vector<std::string> fields(tokens.begin(), tokens.end());
    if (fields.size() != 4) {
      Log_Level(5, "ignoring malformed debug entry at line %d: %s\n", number, line.c_str());
      continue;
    }
    entries.push_back({fields[0], splitNames(fields[1]), splitNames(fields[2]), fields[3]});
  }
  return entries;
}

}  // namespace bootforge
