// A directory for what a benchmark reads.
#pragma once

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

namespace bootforge::bench {

/// A directory that goes when the program does.
class TemporaryDirectory {
 public:
  TemporaryDirectory()
      : path_(boost::filesystem::temp_directory_path() /
              boost::filesystem::unique_path("bootforge-bench-%%%%%%%%")) {
    boost::filesystem::create_directory(path_);
  }
  ~TemporaryDirectory() {
    boost::system::error_code ignored;
    boost::filesystem::remove_all(path_, ignored);
  }
  const boost::filesystem::path& path() const { return path_; }

 private:
  const boost::filesystem::path path_;
};

}  // namespace bootforge::bench
