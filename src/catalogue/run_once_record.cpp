#include "catalogue/run_once_record.h"

#include <boost/algorithm/string/trim.hpp>
#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/device/file_descriptor.hpp>
#include <boost/iostreams/filter/gzip.hpp>
#include <boost/iostreams/filtering_stream.hpp>
#include <cerrno>
#include <istream>
#include <locale>
#include <stdexcept>

#include "util/afstream.h"
#include "util/regular_file.h"
#include "util/system_error.h"

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

}  // namespace

void loadRunOnceRecord(std::set<std::string>& keys) {
  UniqueFd file = openRegularFile(kRunOnceRecord);
  if (!file) return;
  std::set<std::string> found;
  try {
    io::filtering_istream stream;
    stream.push(io::gzip_decompressor(io::gzip::default_window_bits, kBufferSize));
    stream.push(io::file_descriptor_source(file.get(), io::never_close_handle));
    // Otherwise an istream turns what a damaged file throws into an early end.
    stream.exceptions(std::ios::badbit);
    std::string prefix(kPrefix.size(), '\0');
    stream.read(prefix.data(), static_cast<std::streamsize>(prefix.size()));
    if (!stream || prefix != kPrefix) return;
    for (std::string item; std::getline(stream, item, ',');) {
      boost::algorithm::trim(item, std::locale::classic());
      if (!item.empty()) found.insert(std::move(item));
    }
  } catch (const std::exception&) {
    return;
  }
  keys.merge(found);
}

void saveRunOnceRecord(const std::set<std::string>& keys) {
  afstream file;
  file.open(kRunOnceRecord, std::ios_base::trunc | std::ios_base::binary);
  // Compressed in memory: a compressor whose target takes no more bytes tries again for ever.
  const std::string content = compressed(keys);
  errno = 0;
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.flush();
  if (!file) {
    throw std::runtime_error(std::string("unable to write '") + kRunOnceRecord +
                             "': " + systemErrorText(errno));
  }
  file.commit();
}

}  // namespace bootforge
