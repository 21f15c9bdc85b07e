// Descriptions to read.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstddef>

namespace bootforge::bench {

/// A directory of that many descriptions of about 1 KB, written on the first call for each size; it
/// goes when the program does.
const boost::filesystem::path& descriptions(std::size_t count);

}  // namespace bootforge::bench
