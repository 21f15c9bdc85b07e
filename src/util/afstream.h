// Replacing a file in one step.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

namespace bootforge {

/// What afstream throws.
class FileError : public std::runtime_error {
 public:
  FileError(const std::string& text, int error) : std::runtime_error(text), error_(error) {}
  /// The errno of the call that failed.
  int error() const { return error_; }

 private:
  int error_;
};

/// An output file stream whose content replaces the destination when, and only when, commit() is
/// called: until then it goes to a temporary file beside the destination, which the destructor
/// removes. Readers see the old file or the new one, never half of one. Of two writers of one
/// destination the last to commit wins.
///
/// A full disk shows in the state of the stream alone, as with any file stream; commit() does not
/// look at it. Flush and test the stream first, or a good file is replaced by a short one.
///
/// For one thread.
class afstream : public std::ofstream {
 public:
  /// An unopened stream.
  afstream() = default;
  /// Drops what was not committed.
  ~afstream() override;
  afstream(const afstream&) = delete;
  afstream& operator=(const afstream&) = delete;

  /// Creates the temporary file, "DESTINATION.XXXXXX" with mode 0600, and opens the stream on it;
  /// `out` is added to `mode`. What an earlier open() left uncommitted is dropped. Throws
  /// FileError; the stream is unusable then.
  void open(const char* destination, std::ios_base::openmode mode);

  /// Closes the stream and moves the temporary file into the destination's place, where it gets the
  /// permission bits of the file that it replaces; a new file keeps mode 0600. Throws FileError
  /// when there is no destination, when the file could not be moved, and when it was moved but may
  /// not have the right permission bits.
  ///
  /// The file is synced before the move, and again with its folder after it, so that the new
  /// content survives a power cut on any file system. A sync that fails sets the failbit, as does a
  /// failing close; neither throws.
  void commit();

 private:
  void discard();
  void replaceDestination();

  std::string temporaryPath_;    // empty until a successful open
  std::string destinationPath_;  // likewise
};

/// Writes the whole content of a regular file into the stream. Throws FileError: when `source`
/// cannot be opened (the stream is left as it was), and when reading or writing failed (the stream
/// has failed then). What is no regular file is never waited on: it cannot be opened.
void copyFileInto(const char* source, afstream& target);

}  // namespace bootforge
