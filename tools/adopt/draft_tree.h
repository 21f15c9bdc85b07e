// What a tree would be like.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/adopt/tree.h"

namespace bootforge::adopt {

/// Lies over a tree and takes its changes; the tree itself stays as it is.
class DraftTree : public Tree {
 public:
  explicit DraftTree(const Tree& base) : base_(base) {}

  /// What differs from the tree below, as a patch in the format of git, with the paths of the
  /// tree: "git apply" makes the same of it. A new folder is a line of its own before it.
  std::string asPatch() const;

  Entry look(const std::string& path) const override;
  std::vector<std::string> list(const std::string& path) const override;
  void makeFolder(const std::string& path) override;
  void makeLink(const std::string& path, const std::string& target) override;
  void write(const std::string& path, const std::string& content) override;
  void addName(const std::string& path, const std::string& name) override;
  void move(const std::string& path, const std::string& target) override;
  void setAttributes(const std::string& path, const Entry& like) override;
  void remove(const std::string& path) override;
  void removeFolder(const std::string& path) override;
  void settle() override {}

 private:
  const Tree& base_;
  std::map<std::string, Entry> changed_;
  std::map<std::string, std::string> names_;  // second names, and what they are names of
};

}  // namespace bootforge::adopt
