// A recorded boot as rows of data.
#pragma once

#include <boost/json/object.hpp>
#include <string>

#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// One plugin, with the keys of the command `blame`. Times of what did not run are null.
boost::json::object rowOf(const TimedPlugin& plugin);

/// The boot itself, with the keys of `blame`.
boost::json::object rowOf(const Timeline& timeline);

/// The object as one line of text.
std::string lineOf(const boost::json::object& object);

}  // namespace bootforge::analyze
