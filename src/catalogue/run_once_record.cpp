#include "catalogue/run_once_record.h"

#include <array>
#include <boost/algorithm/string/trim.hpp>
#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/filter/gzip.hpp>
#include <boost/iostreams/filtering_stream.hpp>
#include <istream>
#include <locale>
#include <optional>
#include <sstream>
#include <string_view>

#include "util/afstream.h"
#include "util/regular_file.h"

namespace bootforge {
namespace {

namespace io = boost::iostreams;

constexpr std::string_view kPrefix = "bootforge.run-once=";
constexpr std::streamsize kBufferSize = 4096;

std::string compressed(const std::set<std::string>& keys) {
  std::string content;
  io::filtering_ostream stream;
  stream.push(io::gzip_compressor(io::gzip_params()));
  stream.push(io::back_inserter(content));
  stream << kPrefix;
  for (const std::string& key : keys) stream << key << ',';
  stream << '\n';
  io::close(stream);
  return content;
}

/// The content of a gzip file, or nothing when there is more than kReadLimit of it. Throws
/// std::exception for a damaged one.
std::optional<std::string> decompressed(const std::string& file) {
  io::filtering_istream stream;
  stream.push(io::gzip_decompressor(io::gzip::default_window_bits, kBufferSize));
  stream.push(io::array_source(file.data(), file.size()));
  // Otherwise an istream turns what a damaged file throws into an early end.
  stream.exceptions(std::ios::badbit);
  std::string content;
  std::array<char, kBufferSize> chunk;
  do {
    stream.read(chunk.data(), chunk.size());
    content.append(chunk.data(), static_cast<std::size_t>(stream.gcount()));
    if (content.size() > kReadLimit) return std::nullopt;
  } while (stream);
  return content;
}

}  // namespace

void loadRunOnceRecord(std::set<std::string>& keys) {
  const std::optional<std::string> file = readRegularFile(kRunOnceRecord);
  if (!file) return;
  std::optional<std::string> content;
  try {
    content = decompressed(*file);
  } catch (const std::exception&) {
    return;
  }
  if (!content || !content->starts_with(kPrefix)) return;
  std::istringstream items(content->substr(kPrefix.size()));
  for (std::string item; std::getline(items, item, ',');) {
    boost::algorithm::trim(item, std::locale::classic());
    if (!item.empty()) keys.insert(std::move(item));
  }
}

void saveRunOnceRecord(const std::set<std::string>& keys) {
  afstream file;
  file.open(kRunOnceRecord, std::ios_base::trunc | std::ios_base::binary);
  // Compressed in memory: a compressor whose target takes no more bytes tries again for ever.
  writeAndCommit(file, compressed(keys));
}

}  // namespace bootforge
