#include "reading/json_text.h"

#include <algorithm>
#include <boost/container/small_vector.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/error.hpp>
#include <boost/system/error_code.hpp>
#include <unordered_set>
#include <utility>

#include "reading/json_comments.h"

namespace bootforge {
namespace {

namespace json = boost::json;
using boost::system::error_code;

// The parser recurses once a level: deep enough for anybody, shallow enough for the stack.
constexpr std::size_t kDeepest = 4096;

}  // namespace

/// Takes the parser's events. They come in the order of the text, whose tokens it walks beside the
/// parser to know their places; the text between two tokens is known to be good.
class JsonText::Builder {
 public:
  // What the parser asks of its handler.
  static constexpr std::size_t max_object_size = SIZE_MAX;
  static constexpr std::size_t max_array_size = SIZE_MAX;
  static constexpr std::size_t max_key_size = SIZE_MAX;
  static constexpr std::size_t max_string_size = SIZE_MAX;

  Builder(JsonText& target, const std::string& text) : target_(target), text_(text) {
    // Most texts have no more values than that.
    target.nodes_.reserve(text.size() / sizeof(Node) + 1);
  }

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_object_begin(error_code&) { return open(Kind::Object, '{'); }
  bool on_object_end(std::size_t, error_code&) { return close(); }
  bool on_array_begin(error_code&) { return open(Kind::Array, '['); }
  bool on_array_end(std::size_t, error_code&) { return close(); }
  bool on_key_part(json::string_view part, std::size_t, error_code&) { return collect(part); }
  bool on_key(json::string_view part, std::size_t, error_code&) { return string(part); }
  bool on_string_part(json::string_view part, std::size_t, error_code&) { return collect(part); }
  bool on_string(json::string_view part, std::size_t, error_code&) { return string(part); }
  bool on_number_part(json::string_view, error_code&) { return true; }
  bool on_int64(std::int64_t value, json::string_view, error_code&) {
    return number(static_cast<double>(value));
  }
  bool on_uint64(std::uint64_t value, json::string_view, error_code&) {
    return number(static_cast<double>(value));
  }
  bool on_double(double value, json::string_view, error_code&) { return number(value); }
  bool on_bool(bool value, error_code&) { return word(Kind::Bool, value ? 1 : 0); }
  bool on_null(error_code&) { return word(Kind::Null, 0); }
  bool on_comment_part(json::string_view, error_code&) { return true; }
  bool on_comment(json::string_view, error_code&) { return true; }

 private:
  static std::uint32_t narrow(std::size_t number) { return static_cast<std::uint32_t>(number); }

  // By hand: the standard library's search for one of several characters is slow for short ways.
  void seekWord() {
    while (at_ < text_.size() && isBetweenTokens(text_[at_])) ++at_;
  }
  // What ends an object or an array is passed over with the rest: nobody asks where it stands.
  static bool isBetweenTokens(char c) {
    return c == ' ' || c == '\n' || c == '\t' || c == '\r' || c == ',' || c == ':' || c == ']' ||
           c == '}';
  }

  void add(Kind kind, std::uint32_t data, bool isUnescaped = false) {
    const std::uint32_t next = narrow(target_.nodes_.size() + 1);
    target_.nodes_.push_back({narrow(at_), next, data, kind, isUnescaped});
  }

  bool open(Kind kind, char bracket) {
    at_ = text_.find(bracket, at_);
    open_.push_back(target_.nodes_.size());
    add(kind, 0);
    ++at_;
    return true;
  }

  bool close() {
    target_.nodes_[open_.back()].next = narrow(target_.nodes_.size());
    open_.pop_back();
    return true;
  }

  bool word(Kind kind, std::uint32_t data) {
    seekWord();
    add(kind, data);
    while (at_ < text_.size() && !isBetweenTokens(text_[at_])) ++at_;
    return true;
  }

  bool number(double value) {
    target_.numbers_.push_back(value);
    return word(Kind::Number, narrow(target_.numbers_.size() - 1));
  }

  bool collect(json::string_view part) {
    parts_.append(part.data(), part.size());
    return true;
  }

  bool string(json::string_view last) {
    // The parser hands on a string without escapes as it stands in the text, between its quotes.
    const std::size_t begin = offsetOf(last.data());
    const std::size_t end = begin + last.size();
    const bool isInText = begin > 0 && begin <= text_.size() && end < text_.size();
    if (!parts_.empty() || !isInText || text_[begin - 1] != '"' || text_[end] != '"') {
      return stringWithEscapes(last);
    }
    at_ = begin - 1;
    add(Kind::String, narrow(last.size()));
    at_ = end + 1;
    return true;
  }

  /// Of a place that may be elsewhere: then it is beyond the end.
  std::size_t offsetOf(const char* place) const {
    return reinterpret_cast<std::uintptr_t>(place) - reinterpret_cast<std::uintptr_t>(text_.data());
  }

  // Apart, so that the many without escapes are not slowed down by its size.
  [[gnu::noinline]] bool stringWithEscapes(json::string_view last) {
    at_ = text_.find('"', at_);
    collect(last);
    add(Kind::String, narrow(target_.unescaped_.size()), true);
    target_.unescaped_.push_back(std::exchange(parts_, {}));
    at_ = json_comments::endOfString(text_, at_);
    return true;
  }

  JsonText& target_;
  const std::string& text_;  // without comments
  std::size_t at_ = 0;
  boost::container::small_vector<std::size_t, 16> open_;
  std::string parts_;
};

JsonText::JsonText(std::string text) : text_(std::move(text)) {
  if (text_.size() >= UINT32_MAX) {
    error_ = "is too large";
    return;
  }
  std::string blanked;
  const bool hasComments = json_comments::findMark(text_, 0) != std::string::npos;
  if (hasComments) {
    blanked = text_;
    blankComments(blanked);
  }
  const std::string& source = hasComments ? blanked : text_;

  json::parse_options options;
  options.allow_invalid_utf8 = true;
  options.max_depth = kDeepest;
  json::basic_parser<Builder> parser(options, *this, source);
  error_code error;
  end_ = parser.write_some(false, source.data(), source.size(), error);
  if (error) error_ = error.message();
}

std::vector<JsonText::Entry> JsonText::lastEntries(const Value& object) const {
  std::vector<Entry> all;
  for (const Entry& entry : entries(object)) all.push_back(entry);
  std::unordered_set<std::string_view> seen;
  std::vector<Entry> last;
  for (auto entry = all.rbegin(); entry != all.rend(); ++entry) {
    if (seen.insert(entry->key).second) last.push_back(*entry);
  }
  std::reverse(last.begin(), last.end());
  return last;
}

bool JsonText::find(const Value& object, std::string_view key, Value* found) const {
  bool isFound = false;
  for (const Entry& entry : entries(object)) {
    if (entry.key != key) continue;
    *found = entry.value;
    isFound = true;
  }
  return isFound;
}

}  // namespace bootforge
