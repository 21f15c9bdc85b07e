#include "reading/name_list.h"

#include <boost/tokenizer.hpp>

namespace bootforge {

std::vector<std::string> itemsOf(const std::string& text) {
  const boost::char_separator<char> comma(",");
  const boost::tokenizer<boost::char_separator<char>> items(text, comma);
  return {items.begin(), items.end()};
}

}  // namespace bootforge
