// A host's files, as this program looks at them and changes them.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "util/exception.h"

namespace bootforge::adopt {

/// A call that failed for a path: "PATH: ERROR".
class Failure : public Exception {
 public:
  Failure(const std::string& path, int error);
};

/// Permissions of what did not stand there before.
inline constexpr mode_t kNewFile = 0644;
inline constexpr mode_t kNewFolder = 0755;

/// What stands at a path; a link is looked at itself.
struct Entry {
  enum class Kind { kNothing, kFile, kLink, kFolder, kOther };

  Kind kind = Kind::kNothing;
  std::string content;  // of a file; where a link leads
  mode_t mode = 0;      // the permission bits of a file or a folder
  uid_t owner = 0;
  gid_t group = 0;

  bool isThere() const { return kind != Kind::kNothing; }
  bool isFile() const { return kind == Kind::kFile; }
  bool isFolder() const { return kind == Kind::kFolder; }
  bool isLinkTo(const std::string& target) const {
    return kind == Kind::kLink && content == target;
  }
  bool hasAttributesOf(const Entry& other) const {
    return mode == other.mode && owner == other.owner && group == other.group;
  }
};

/// A tree of files whose paths are absolute inside it and lead through no link: resolve() makes
/// them. Every function throws Failure.
class Tree {
 public:
  Tree() = default;
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;
  virtual ~Tree() = default;

  virtual Entry look(const std::string& path) const = 0;
  /// The names in a folder; none where there is no folder.
  virtual std::vector<std::string> list(const std::string& path) const = 0;

  virtual void makeFolder(const std::string& path) = 0;
  virtual void makeLink(const std::string& path, const std::string& target) = 0;
  /// Makes a file with mode 0644, or replaces one in one step: whoever looks sees the old one or
  /// the new one, and so does the next boot after a power cut. The new one has the owner, the mode
  /// and the extended attributes of the old one.
  virtual void write(const std::string& path, const std::string& content) = 0;
  /// Gives a file a second name, which is free.
  virtual void addName(const std::string& path, const std::string& name) = 0;
  /// Moves a file over another one, in one step.
  virtual void move(const std::string& path, const std::string& target) = 0;
  virtual void setAttributes(const std::string& path, const Entry& like) = 0;
  /// Removes a file or a link.
  virtual void remove(const std::string& path) = 0;
  /// Removes a folder with nothing in it.
  virtual void removeFolder(const std::string& path) = 0;
  /// Brings what was done so far to the disk: nothing that is done later survives a power cut
  /// without it.
  virtual void settle() = 0;
};

/// Where write() prepares the new content of a file. A run that was killed may leave it behind.
std::string temporaryName(const std::string& path);

std::string folderOf(const std::string& path);
std::string nameOf(const std::string& path);

}  // namespace bootforge::adopt
