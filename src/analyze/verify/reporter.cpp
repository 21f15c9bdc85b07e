#include "analyze/verify/reporter.h"

#include <algorithm>

#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

// Bytes of a line that are shown before and behind a place.
constexpr std::size_t kBefore = 60;
constexpr std::size_t kBehind = 90;
constexpr const char* kEllipsis = "...";
// Bytes of UTF-8.
constexpr std::size_t kLongestCharacter = 4;

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

Finding& Reporter::add(std::string_view rule, std::string file, std::string subject,
                       std::string message) {
  Finding& finding = findings_.emplace_back();
  finding.rule = &ruleNamed(rule);
  if (!file.empty()) finding.file = std::move(file);
  finding.subject = std::move(subject);
  finding.message = std::move(message);
  return finding;
}

Finding& TextReporter::add(std::string_view rule, std::size_t offset, std::string subject,
                           std::string message) {
  moveTo(std::min(offset, text_.size()));
  Finding& finding = reporter_.add(rule, file_, std::move(subject), std::move(message));
  finding.line = place_.line;
  finding.column = place_.column;
  finding.excerpt = excerptAt(at_);
  return finding;
}

void TextReporter::moveTo(std::size_t offset) {
  if (offset < at_) {
    at_ = 0;
    lineAt_ = 0;
    place_ = {};
  }
  while (at_ < offset) {
    const bool isNewline = text_[at_] == '\n';
    at_ += firstCharacter(text_.substr(at_, kLongestCharacter)).length;
    ++place_.column;
    if (!isNewline) continue;
    ++place_.line;
    place_.column = 1;
    lineAt_ = at_;
  }
}

Excerpt TextReporter::excerptAt(std::size_t offset) const {
  std::size_t begin = offset - std::min(offset - lineAt_, kBefore);
  while (begin > lineAt_ && isContinuation(text_[begin])) --begin;
  const std::size_t lineEnd = std::min(text_.find('\n', offset), text_.size());
  std::size_t end = std::min(lineEnd, offset + kBehind);
  while (end < lineEnd && end > offset && isContinuation(text_[end])) --end;
  const std::string before =
      (begin > lineAt_ ? kEllipsis : "") + printable(text_.substr(begin, offset - begin));
  const std::string after =
      printable(text_.substr(offset, end - offset)) + (end < lineEnd ? kEllipsis : "");
  return {before + after, displayWidth(before)};
}

}  // namespace bootforge::analyze
