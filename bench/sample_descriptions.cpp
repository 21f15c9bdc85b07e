#include "bench/sample_descriptions.h"

#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <string>

#include "bench/temporary_directory.h"

namespace bootforge::bench {
namespace {

namespace fs = boost::filesystem;

/// About 1 KB, as a platform engineer writes them. Every tenth plugin opens a new milestone.
std::string descriptionOf(std::size_t number) {
  const std::string name = "service-" + std::to_string(number);
  const std::size_t layer = number / 10;
  const std::string before = "layer-" + std::to_string(layer == 0 ? 0 : layer - 1) + "-ready";
  const std::string here = "layer-" + std::to_string(layer) + "-ready";
  return "// Brings up " + name +
         " once its neighbours are there, and tells the operator that it\n"
         "// did. The second command is harmless when the first one has been run before.\n"
         "{\n"
         "  \"metadata\": {\n"
         "    \"version\": 4,\n"
         "    \"requires\": [\"early-fs\", \"network-ready\", \"" +
         before +
         "\"],\n"
         "    \"provides\": [\"" +
         here +
         "\", \"services-ready\"],\n"
         "    \"required_flags\": [],\n"
         "    \"disabling_flags\": [\"maintenance\", \"recovery\"],\n"
         "    \"run_once\": false,\n"
         "    \"plugin_version\": \"2.1\"\n"
         "  },\n"
         "  \"operations\": {\n"
         "    \"start\": [\n"
         "      \"boot file directory --path=/var/lib/nimbus/" +
         name +
         " --mode=0700\",\n"
         "      \"system settings set --option=/services/" +
         name +
         "/enabled --value=true\",\n"
         "      \"network firewall ruleset allow --ruleset=" +
         name +
         " --direction=inbound\",\n"
         "      \"system service start --name=" +
         name +
         " --timeout=30\"\n"
         "    ],\n"
         "    \"apply_host_profile\": [\n"
         "      \"system settings apply --profile=/etc/nimbus/profile.d/" +
         name +
         ".xml\",\n"
         "      \"system service start --name=" +
         name +
         " --timeout=30 --profile=current\"\n"
         "    ]\n"
         "  }\n"
         "}\n";
}

}  // namespace

const fs::path& descriptions(std::size_t count) {
  static TemporaryDirectory parent;
  static std::map<std::size_t, fs::path> written;
  const auto [place, isNew] = written.try_emplace(count, parent.path() / std::to_string(count));
  const fs::path& directory = place->second;
  if (!isNew) return directory;
  fs::create_directory(directory);
  for (std::size_t i = 0; i < count; ++i) {
    std::ofstream file((directory / ("service-" + std::to_string(i) + ".json")).string());
    file << descriptionOf(i);
    if (!file.flush()) {
      std::cerr << "benchmark: cannot write to " << directory << '\n';
      std::exit(EXIT_FAILURE);
    }
  }
  return directory;
}

}  // namespace bootforge::bench
