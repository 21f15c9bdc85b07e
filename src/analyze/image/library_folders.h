// Where the loader of an image looks for libraries.
#pragma once

#include <string>
#include <vector>

#include "analyze/image/root_folder.h"

namespace bootforge::analyze {

/// The standard folders with their 64 and multiarch variants, and those that the image's ld.so.conf
/// names, included files too; ld.so(8), ldconfig(8).
std::vector<std::string> libraryFolders(const RootFolder& root);

}  // namespace bootforge::analyze
