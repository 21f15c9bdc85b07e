#include "catalogue/entry.h"

namespace bootforge {

Entry entryOf(const std::string& fileName) {
  const std::size_t dot = fileName.rfind('.');
  if (dot == std::string::npos) return {Entry::Kind::NoType, fileName, {}};
  Entry entry{Entry::Kind::UnknownType, fileName.substr(0, dot), fileName.substr(dot + 1)};
  if (entry.baseName.starts_with("lib")) entry.baseName.erase(0, 3);
  if (entry.extension == "so") entry.kind = Entry::Kind::Native;
  if (entry.extension == "json") entry.kind = Entry::Kind::Json;
  if (entry.extension == "debug") entry.kind = Entry::Kind::Debug;
  return entry;
}

}  // namespace bootforge
