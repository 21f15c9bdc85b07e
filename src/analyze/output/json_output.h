// JSON as the verbs write it.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/value.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge::analyze {

/// A string of any bytes as valid UTF-8.
boost::json::string jsonText(std::string_view text);

boost::json::array jsonTexts(const std::vector<std::string>& texts);

/// One value, indented, with a newline at its end.
std::string prettyJson(const boost::json::value& value);

}  // namespace bootforge::analyze
