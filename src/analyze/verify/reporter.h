// Making findings with their places.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "analyze/verify/finding.h"
#include "reading/place.h"

namespace bootforge::analyze {

/// Collects the findings of a run.
class Reporter {
 public:
  /// About an image as a whole, or a file without a place in it. The reference is good until the
  /// next call.
  Finding& add(std::string_view rule, std::string file, std::string subject, std::string message);

  Findings take() { return std::move(findings_); }

 private:
  Findings findings_;
};

/// Findings with places in one text. Quick when offsets ascend, as they mostly do: a line of many
/// megabytes is not counted anew for each of a million faults.
class TextReporter {
 public:
  /// The text must outlive this.
  TextReporter(Reporter& reporter, std::string file, std::string_view text)
      : reporter_(reporter), file_(std::move(file)), text_(text) {}

  Finding& add(std::string_view rule, std::size_t offset, std::string subject, std::string message);

 private:
  void moveTo(std::size_t offset);
  Excerpt excerptAt(std::size_t offset) const;

  Reporter& reporter_;
  std::string file_;
  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t lineAt_ = 0;
  Place place_;
};

}  // namespace bootforge::analyze
