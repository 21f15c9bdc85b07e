// Any bytes as JSON: our own tree of a text says what Boost.JSON's says, value by value, and a
// description is read from it without a crash.
#include <boost/json/parse_options.hpp>
#include <boost/json/stream_parser.hpp>
#include <boost/json/value.hpp>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "reading/description.h"
#include "reading/json_text.h"

namespace {

namespace json = boost::json;
using bootforge::JsonText;
using Kind = JsonText::Kind;

// Neither side of the comparison recurses deeper.
constexpr std::size_t kDepth = 200;

void require(bool condition) {
  if (!condition) std::abort();
}

bool isSameNumber(double ours, const json::value& theirs) {
  if (theirs.is_int64()) return ours == static_cast<double>(theirs.get_int64());
  if (theirs.is_uint64()) return ours == static_cast<double>(theirs.get_uint64());
  // Boost.JSON makes NaN of a zero with a huge exponent.
  const double other = theirs.get_double();
  return ours == other || (std::isnan(ours) && std::isnan(other));
}

void requireSame(const JsonText& text, const JsonText::Value& ours, const json::value& theirs) {
  require(ours.at() < text.text().size());
  switch (ours.kind()) {
    case Kind::Null:
      return require(theirs.is_null());
    case Kind::Bool:
      return require(theirs.is_bool() && theirs.get_bool() == ours.boolean());
    case Kind::Number:
      return require(theirs.is_number() && isSameNumber(ours.number(), theirs));
    case Kind::String:
      return require(theirs.is_string() && std::string_view(theirs.get_string()) == ours.string());
    case Kind::Array: {
      require(theirs.is_array());
      std::size_t count = 0;
      for (const JsonText::Entry& entry : text.entries(ours)) {
        require(count < theirs.get_array().size());
        requireSame(text, entry.value, theirs.get_array()[count++]);
      }
      return require(count == theirs.get_array().size());
    }
    case Kind::Object: {
      require(theirs.is_object());
      const auto entries = text.lastEntries(ours);
      require(entries.size() == theirs.get_object().size());
      for (const JsonText::Entry& entry : entries) {
        require(text.text()[entry.keyAt] == '"');
        const json::value* const value = theirs.get_object().if_contains(entry.key);
        require(value != nullptr);
        requireSame(text, entry.value, *value);
      }
    }
  }
}

}  // namespace

extern "C" {

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const JsonText ours(text);
  const bootforge::Description description = bootforge::readDescription(ours);
  bootforge::remarksOn(ours, description);
  require(ours.end() <= size && ours.errorAt() <= size);

  // Comments are ours alone: Boost.JSON misses the end of some.
  if (text.find("//") != std::string::npos || text.find("/*") != std::string::npos) return 0;
  json::parse_options options;
  options.allow_invalid_utf8 = true;
  options.max_depth = kDepth;
  json::stream_parser parser({}, options);
  json::error_code error;
  const std::size_t end = parser.write_some(text.data(), text.size(), error);
  if (!error && !parser.done()) parser.finish(error);
  // A limit of our own comes later than this one.
  if (error == json::error::too_deep) return 0;
  require(ours.isValid() == !error);
  if (error) return 0;
  require(ours.end() == end);
  requireSame(ours, ours.root(), parser.release());
  return 0;
}

}  // extern "C"
