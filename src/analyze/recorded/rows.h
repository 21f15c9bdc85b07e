// A recorded boot as rows of data.
#pragma once

#include <boost/json/object.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// One plugin, with the keys of the command `blame`. Times of what did not run are null.
boost::json::object rowOf(const TimedPlugin& plugin);

/// A text as a JSON string holds it.
boost::json::string jsonText(std::string_view text);

/// Texts as a JSON array.
boost::json::array jsonTexts(const std::vector<std::string>& texts);

/// The object as one line of text.
std::string lineOf(const boost::json::object& object);

}  // namespace bootforge::analyze
