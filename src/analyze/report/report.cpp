#include "analyze/report/report.h"

#include <boost/json/serialize.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "analyze/report/page_parts.h"
#include "analyze/report/report_data.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

/// JSON that cannot end the element around it, nor begin a comment in it: "<" stands in strings
/// only.
std::string forScript(const json::object& data) {
  std::string text;
  for (const char character : json::serialize(data)) {
    if (character == '<') {
      text += "\\u003c";
    } else {
      text += character;
    }
  }
  return text;
}

}  // namespace

Answer report(const Timeline& timeline, const std::vector<KnownPlugin>& known,
              const BootMessages* messages) {
  const json::object data = reportData(timeline, known, messages);
  const std::string text = forScript(data);
  // The summary consists of words and numbers of our own.
  const json::string& title = data.at("summary").get_string();
  const std::pair<std::string_view, std::string_view> parts[] = {
      {"@title@", title}, {"@style@", pageStyle()}, {"@data@", text}, {"@program@", pageProgram()}};
  Answer answer;
  std::string_view frame = pageFrame();
  for (const auto& [mark, part] : parts) {  // in the order in which they stand there
    const std::size_t place = frame.find(mark);
    answer.output += frame.substr(0, place);
    answer.output += part;
    frame.remove_prefix(place + mark.size());
  }
  answer.output += frame;
  return answer;
}

}  // namespace bootforge::analyze
