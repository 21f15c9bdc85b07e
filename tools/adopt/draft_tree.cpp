#include "tools/adopt/draft_tree.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "tools/adopt/lines.h"

namespace bootforge::adopt {
namespace {

/// As the format quotes names that are no plain words.
std::string quoted(const std::string& name) {
  std::string text;
  bool isPlain = true;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ' ' && byte < 127 && c != '"' && c != '\\') {
      text += c;
      continue;
    }
    char escape[5];
    std::snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned>(byte));
    text += escape;
    isPlain = false;
  }
  return isPlain ? text : '"' + text + '"';
}

std::string modeOf(const Entry& entry) {
  if (entry.kind == Entry::Kind::kLink) return "120000";
  return (entry.mode & S_IXUSR) != 0 ? "100755" : "100644";
}

std::string headOf(const std::string& path, const Entry& before, const Entry& after) {
  std::string head = "diff --git " + quoted("a" + path) + ' ' + quoted("b" + path) + '\n';
  if (!before.isThere()) head += "new file mode " + modeOf(after) + '\n';
  if (!after.isThere()) head += "deleted file mode " + modeOf(before) + '\n';
  if (before.isThere() && after.isThere() && modeOf(before) != modeOf(after)) {
    head += "old mode " + modeOf(before) + "\nnew mode " + modeOf(after) + '\n';
  }
  return head;
}

std::string patchOf(const std::string& path, const Entry& before, const Entry& after) {
  const std::string hunks = shownAsHunks(before.content, after.content);
  if (hunks.empty()) return headOf(path, before, after);
  return headOf(path, before, after) + "--- " +
         (before.isThere() ? quoted("a" + path) : "/dev/null") + "\n+++ " +
         (after.isThere() ? quoted("b" + path) : "/dev/null") + '\n' + hunks;
}

std::string copyOf(const std::string& source, const std::string& path) {
  return "diff --git " + quoted("a" + source) + ' ' + quoted("b" + path) +
         "\nsimilarity index 100%\ncopy from " + quoted(source.substr(1)) + "\ncopy to " +
         quoted(path.substr(1)) + '\n';
}

}  // namespace

std::string DraftTree::asPatch() const {
  std::string patch;
  for (const auto& [path, after] : changed_) {
    const Entry before = base_.look(path);
    if (before.isFolder() != after.isFolder()) {
      patch += std::string("folder ") + path + (after.isFolder() ? " is made\n" : " is removed\n");
    }
  }
  for (const auto& [path, after] : changed_) {
    const Entry before = base_.look(path);
    if (before.isFolder() || after.isFolder()) continue;
    const bool isSame = before.kind == after.kind && before.content == after.content;
    if (isSame && before.hasAttributesOf(after)) continue;
    const auto second = names_.find(path);
    const bool isCopy = second != names_.end() && !before.isThere() &&
                        base_.look(second->second).content == after.content;
    patch += isCopy ? copyOf(second->second, path) : patchOf(path, before, after);
  }
  return patch;
}

Entry DraftTree::look(const std::string& path) const {
  const auto found = changed_.find(path);
  return found != changed_.end() ? found->second : base_.look(path);
}

std::vector<std::string> DraftTree::list(const std::string& path) const {
  std::vector<std::string> names = base_.list(path);
  for (const auto& [changed, entry] : changed_) {
    if (folderOf(changed) == path) names.push_back(nameOf(changed));
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  std::erase_if(names, [&](const std::string& name) {
    return !look((path == "/" ? "" : path) + '/' + name).isThere();
  });
  return names;
}

void DraftTree::makeFolder(const std::string& path) {
  changed_[path] = Entry{Entry::Kind::kFolder, "", kNewFolder};
}

void DraftTree::makeLink(const std::string& path, const std::string& target) {
  changed_[path] = Entry{Entry::Kind::kLink, target};
}

void DraftTree::write(const std::string& path, const std::string& content) {
  Entry entry = look(path);
  if (!entry.isThere()) entry = Entry{Entry::Kind::kFile, "", kNewFile};
  entry.content = content;
  changed_[path] = entry;
}

void DraftTree::addName(const std::string& path, const std::string& name) {
  changed_[name] = look(path);
  names_[name] = path;
}

void DraftTree::move(const std::string& path, const std::string& target) {
  changed_[target] = look(path);
  changed_[path] = Entry{};
}

void DraftTree::setAttributes(const std::string& path, const Entry& like) {
  Entry entry = look(path);
  entry.mode = like.mode;
  entry.owner = like.owner;
  entry.group = like.group;
  changed_[path] = entry;
}

void DraftTree::remove(const std::string& path) { changed_[path] = Entry{}; }

void DraftTree::removeFolder(const std::string& path) {
  if (!list(path).empty()) throw Failure(path, ENOTEMPTY);
  changed_[path] = Entry{};
}

}  // namespace bootforge::adopt
