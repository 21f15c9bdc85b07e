// The files themselves.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "analyze/image/root_folder.h"
#include "tools/adopt/tree.h"
#include "util/unique_fd.h"

namespace bootforge::adopt {

/// Each call opens the folder of its path inside the root and works on a name in it without
/// following links, so that nothing outside is ever touched.
class HostTree : public Tree {
 public:
  /// Throws Exception when the root cannot be opened.
  explicit HostTree(const std::string& root) : root_(root) {}

  const analyze::RootFolder& root() const { return root_; }

  /// Keeps other runs of this program out until the process ends. Throws Exception when there is
  /// one.
  void lock(const std::string& folder);

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
  void settle() override;

 private:
  UniqueFd folderFor(const std::string& path) const;
  void touched(const std::string& path);

  analyze::RootFolder root_;
  UniqueFd lock_;
  std::set<std::string> unsettled_;  // folders
};

/// A path without links in it: what the last component leads to, too, unless `follow` is false.
/// What is not there yet is taken as it is written. Throws Failure for links in a circle.
std::string resolve(const analyze::RootFolder& root, const std::string& path, bool follow = true);

}  // namespace bootforge::adopt
