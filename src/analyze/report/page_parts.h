// The page's own parts; the build makes them from page/ and the libraries that those use.
#pragma once

#include <string_view>

namespace bootforge::analyze {

/// The HTML with "@name@" where the other parts, the title and the data go.
std::string_view pageFrame();
std::string_view pageStyle();
/// One script that needs nothing else.
std::string_view pageProgram();

}  // namespace bootforge::analyze
