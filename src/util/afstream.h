// Replacing a file in one step.
#pragma once

#include <sys/stat.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "util/unique_fd.h"

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
/// look at it. Flush and test the stream first, or a good file is replaced by a short one;
/// writeAndCommit() does.
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

  /// Closes the stream and moves the temporary file into the destination's place. It gets the
  /// permission bits of the regular file that it replaces, but for the set-id bits, and only where
  /// that file (and the link to it, if it is one) belongs to root or to us; otherwise it keeps mode
  /// 0600. Throws FileError when there is no destination, when the file could not be moved, and
  /// when it was moved but may not have the right permission bits.
  ///
  /// The file is synced before the move, and its folder after it, so that the new content survives
  /// a power cut. Where the first sync fails and there is an old file, the old one stays and
  /// FileError is thrown. Any other failing sync sets the failbit and syncError(), a failing close
  /// the failbit; neither throws.
  void commit();

  /// Lets commit() give the file no permission bits but these, whatever the file that it replaces
  /// has by then: for content that was copied from a file with these.
  void limitMode(mode_t most) { mostMode_ &= most; }

  /// The errno of the sync that failed in a commit() which moved the file; 0 when none did.
  int syncError() const { return syncError_; }

  /// What commit() replaces; empty until a successful open().
  const std::string& destination() const { return destinationPath_; }

 private:
  void discard();
  void openStream(std::ios_base::openmode mode);
  void replaceDestination();
  void syncMoved();

  static constexpr mode_t kAnyMode = 07777;

  UniqueFd file_;  // the temporary file; the stream has a descriptor of its own
  std::string temporaryPath_;
  std::string destinationPath_;
  int syncError_ = 0;
  mode_t mostMode_ = kAnyMode;  // of the new file
};

/// Writes all of `content` and commits. Throws FileError when that fails, the destination is then
/// as it was, and when the new content is in place but may not survive a power cut.
void writeAndCommit(afstream& file, const std::string& content);

/// Writes the whole content of a regular file into the stream. Throws FileError: when `source`
/// cannot be opened (the stream is left as it was), and when reading or writing failed (the stream
/// has failed then). What is no regular file is never waited on: it cannot be opened. Where others
/// may write the folder of `source`, only a file of ours without any other name is copied, and no
/// link is followed.
void copyFileInto(const char* source, afstream& target);

}  // namespace bootforge
