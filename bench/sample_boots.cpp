#include "bench/sample_boots.h"

#include <boost/filesystem/operations.hpp>

#include "bench/scratch_host.h"

namespace bootforge::bench {

namespace fs = boost::filesystem;

void writeLayeredPlugins(const std::string& directory, int count) {
  for (int i = 0; i < count; ++i) {
    const int layer = i / kServicesInLayer;
    const std::string here = "layer-" + std::to_string(layer);
    const std::string before = layer == 0 ? "" : "\"layer-" + std::to_string(layer - 1) + '"';
    writeHostFile(directory + "/plugin-" + std::to_string(i) + ".json",
                  "{\n"
                  "  \"metadata\": {\n"
                  "    \"version\": 1,\n"
                  "    \"requires\": [" +
                      before +
                      "],\n"
                      "    \"provides\": [\"" +
                      here +
                      "\"]\n"
                      "  },\n"
                      "  \"operations\": {\"start\": [\"bench true\"]}\n"
                      "}\n");
  }
}

void copyNativePlugins(const std::string& directory, int count) {
  fs::create_directories(directory);
  for (int i = 0; i < count; ++i) {
    fs::copy_file("/bench/idle_plugin.so", directory + "/libplugin-" + std::to_string(i) + ".so");
  }
}

}  // namespace bootforge::bench
