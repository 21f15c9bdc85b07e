// A JSON text with the place of everything in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace bootforge {

/// Parsed by Boost.JSON: comments allowed, bytes inside strings kept as they are, at most 4,096
/// levels deep, at most 4 GiB. The values stand in one array in the order of the text, so that a
/// file of many small values costs no more than a few times its size.
class JsonText {
 public:
  enum class Kind : std::uint8_t { Null, Bool, Number, String, Array, Object };

 private:
  struct Node {
    std::uint32_t at;
    std::uint32_t next;  // the index behind the value and all that is in it
    std::uint32_t
        data;  // of a string: see stringOf(); of a number: its index; of a bool: its value
    Kind kind;
    bool isUnescaped = false;
  };

 public:
  /// A value in its text, which must outlive it. Cheap to copy.
  class Value {
   public:
    Kind kind() const { return node().kind; }
    bool isObject() const { return kind() == Kind::Object; }
    bool isArray() const { return kind() == Kind::Array; }
    bool isString() const { return kind() == Kind::String; }
    bool isNumber() const { return kind() == Kind::Number; }
    bool isBool() const { return kind() == Kind::Bool; }

    /// Where the value begins, as an offset in bytes.
    std::size_t at() const { return node().at; }
    bool boolean() const { return node().data != 0; }
    double number() const { return text_->numbers_[node().data]; }
    std::string_view string() const { return text_->stringOf(node()); }

   private:
    friend class JsonText;
    Value(const JsonText& text, std::size_t index) : text_(&text), index_(index) {}
    const Node& node() const { return text_->nodes_[index_]; }

    const JsonText* text_;
    std::size_t index_;
  };

  /// One entry of an object (with its key) or an array (without).
  struct Entry {
    std::string_view key;
    std::size_t keyAt = 0;
    Value value;
  };

  /// Reads the first value of the text. Never throws but for want of memory.
  explicit JsonText(std::string text);
  JsonText(const JsonText&) = delete;
  JsonText& operator=(const JsonText&) = delete;

  const std::string& text() const { return text_; }

  /// False when there is no JSON value at the text's head.
  bool isValid() const { return error_.empty(); }
  /// What is wrong with a text that is not valid, and the offset of the fault.
  const std::string& error() const { return error_; }
  std::size_t errorAt() const { return end_; }
  /// Where the value has ended, white space and comments behind it included.
  std::size_t end() const { return end_; }
  bool hasTrailingText() const { return isValid() && end_ < text_.size(); }

  /// The first value. The text must be valid.
  Value root() const { return {*this, 0}; }

  class Range;
  /// The entries of an array or an object, in the order of the text, duplicates included.
  Range entries(const Value& value) const;

  /// The entries of an object that count: of those with one key the last.
  std::vector<Entry> lastEntries(const Value& object) const;

  /// The last entry with that key, which is the one that counts; false when there is none.
  bool find(const Value& object, std::string_view key, Value* found) const;

 private:
  class Builder;

  std::string_view stringOf(const Node& node) const;

  std::string text_;
  std::vector<Node> nodes_;
  std::vector<double> numbers_;
  std::vector<std::string> unescaped_;  // the strings that are written with escapes
  std::string error_;
  std::size_t end_ = 0;
};

class JsonText::Range {
 public:
  class Iterator {
   public:
    Entry operator*() const;
    Iterator& operator++();
    bool operator==(const Iterator& other) const { return index_ == other.index_; }

   private:
    friend class Range;
    Iterator(const Range& range, std::size_t index) : range_(&range), index_(index) {}
    const Range* range_;
    std::size_t index_;
  };

  Iterator begin() const { return {*this, first_}; }
  Iterator end() const { return {*this, end_}; }
  bool empty() const { return first_ == end_; }
  /// Counts them.
  std::size_t size() const;

 private:
  friend class JsonText;
  const JsonText* text_;
  std::size_t first_;
  std::size_t end_;
  bool hasKeys_;
};

inline std::string_view JsonText::stringOf(const Node& node) const {
  if (node.isUnescaped) return unescaped_[node.data];
  return {text_.data() + node.at + 1, node.data};
}

inline JsonText::Range JsonText::entries(const Value& value) const {
  Range range;
  range.text_ = this;
  range.first_ = value.index_ + 1;
  range.end_ = value.node().next;
  range.hasKeys_ = value.isObject();
  return range;
}

inline JsonText::Entry JsonText::Range::Iterator::operator*() const {
  const JsonText& text = *range_->text_;
  if (!range_->hasKeys_) return {{}, 0, Value(text, index_)};
  const Node& key = text.nodes_[index_];
  return {text.stringOf(key), key.at, Value(text, index_ + 1)};
}

inline JsonText::Range::Iterator& JsonText::Range::Iterator::operator++() {
  index_ = range_->text_->nodes_[range_->hasKeys_ ? index_ + 1 : index_].next;
  return *this;
}

inline std::size_t JsonText::Range::size() const {
  std::size_t count = 0;
  for (Iterator entry = begin(); entry != end(); ++entry) ++count;
  return count;
}

}  // namespace bootforge
