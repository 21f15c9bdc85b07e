// The root of the program's failures.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace bootforge {

/// A failure with one text, which what() returns unchanged.
class Exception : public std::exception {
 public:
  explicit Exception(std::string message) : message_(std::move(message)) {}
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

}  // namespace bootforge
