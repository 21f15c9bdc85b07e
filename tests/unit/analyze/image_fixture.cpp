#include "tests/unit/analyze/image_fixture.h"

#include <boost/algorithm/string/replace.hpp>
#include <filesystem>

#include "analyze/verify/checks.h"
#include "tests/support/scratch_root.h"

namespace bootforge::analyze::test {
namespace {

std::string lineOf(const Finding& finding) {
  std::string text = std::string(nameOf(finding.rule->severity)) + ' ' +
                     std::string(finding.rule->name) + ' ' + finding.file.value_or("null");
  if (finding.line) text += ':' + std::to_string(*finding.line);
  if (finding.column) text += ':' + std::to_string(*finding.column);
  return text + ' ' + finding.subject + ": " + finding.message;
}

}  // namespace

std::string Text::json() const {
  return "{\"metadata\": {\n\"version\": " + version + ",\n\"requires\": " + required +
         ",\n\"provides\": " + provided + metadata + "},\n\"operations\": {\n\"start\": " + start +
         operations + "}}\n";
}

Text thirdVersion(const std::string& metadata) {
  Text text;
  text.version = "3";
  text.metadata = ",\"run_once\":false,\"plugin_version\":\"\"" + metadata;
  return text;
}

std::string commandFile(const std::string& nameSpace, const std::vector<std::string>& commands) {
  std::string text = "{\"namespace\": \"" + nameSpace + "\", \"commands\": {";
  const char* separator = "\n";
  for (const std::string& command : commands) {
    text += separator + command;
    separator = ",\n";
  }
  return text + "}}\n";
}

ImageTest::ImageTest() {
  options_.root = kRoot;
  const std::string root = kRoot;
  std::filesystem::create_directories(root + kPlugins);
  for (const char* folder : {"/int/ext", "/ext"}) {
    std::filesystem::create_directories(root + kCommands + folder);
  }
}

void ImageTest::put(const std::string& path, const std::string& text, mode_t mode) {
  bootforge::test::writeFile(kRoot + path, text, mode);
}

void ImageTest::putPlugin(const std::string& name, const std::string& text) {
  put(std::string(kPlugins) + '/' + name, text);
}

void ImageTest::putCommand() {
  put("/bin/true", "", 0755);
  put(std::string(kCommands) + "/host.json",
      commandFile("host", {R"("run": {"exec": ["/bin/true"], "timeout": 1})"}));
}

Findings ImageTest::findings() const { return verify(Image(options_), owner_); }

std::vector<std::string> ImageTest::told() const { return told(""); }

std::vector<std::string> ImageTest::told(const std::string& rule) const {
  std::vector<std::string> lines;
  for (const Finding& finding : findings()) {
    if (!rule.empty() && finding.rule->name != rule) continue;
    std::string& line = lines.emplace_back(lineOf(finding));
    boost::algorithm::replace_all(line, kPlugins, "PLUGINS");
    boost::algorithm::replace_all(line, kCommands, "COMMANDS");
  }
  return lines;
}

std::string ImageTest::helpOf(const std::string& rule) const {
  std::string help;
  int count = 0;
  for (const Finding& finding : findings()) {
    if (finding.rule->name != rule) continue;
    help = finding.help;
    ++count;
  }
  EXPECT_EQ(count, 1) << rule;
  return help;
}

}  // namespace bootforge::analyze::test
