#include "analyze/output/json_output.h"
#include "analyze/verify/render.h"
#include "util/version.h"

namespace bootforge::analyze {
namespace {

namespace json = boost::json;

std::string helpOf(const Finding& finding) {
  const std::string general(finding.rule->help);
  return finding.help.empty() ? general : finding.help + ' ' + general;
}

json::value numberOrNull(const std::optional<std::size_t>& number) {
  return number ? json::value(*number) : json::value();
}

json::object toJson(const Finding& finding) {
  json::object object{
      {"rule", finding.rule->name},
      {"severity", nameOf(finding.rule->severity)},
      {"file", finding.file ? json::value(jsonText(*finding.file)) : json::value()},
      {"line", numberOrNull(finding.line)},
      {"column", numberOrNull(finding.column)},
      {"subject", jsonText(finding.subject)},
      {"message", jsonText(finding.message)},
      {"help", jsonText(helpOf(finding))},
  };
  if (!finding.members.empty()) {
    object["members"] = jsonTexts(finding.members);
    object["cycle"] = jsonTexts(finding.cycle);
    object["blocked"] = finding.blocked.value_or(0);
  }
  return object;
}

/// A path without its first slash, as the reference of a URI; RFC 3986.
std::string uriOf(const std::string& path) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string uri;
  for (const char c : path.substr(1)) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') ||
                         std::string_view("-._~/+,=@").find(c) != std::string_view::npos;
    if (isPlain) {
      uri += c;
    } else {
      uri += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return uri;
}

json::object sarifRule(const Rule& rule) {
  return {
      {"id", rule.name},
      {"shortDescription", {{"text", rule.summary}}},
      {"fullDescription", {{"text", std::string(rule.summary) + ' ' + std::string(rule.help)}}},
      {"help", {{"text", rule.help}}},
      {"helpUri", "file://" BOOTFORGE_DOCUMENTS "/rules.md#" + std::string(rule.name)},
      {"defaultConfiguration", {{"level", nameOf(rule.severity)}}},
  };
}

json::object sarifResult(const Finding& finding) {
  const auto index = static_cast<std::size_t>(finding.rule - allRules().data());
  json::object result{
      {"ruleId", finding.rule->name},
      {"ruleIndex", index},
      {"level", nameOf(finding.rule->severity)},
      {"message", {{"text", jsonText(finding.message + ". " + helpOf(finding))}}},
  };
  if (!finding.file) return result;
  json::object place{{"artifactLocation", {{"uri", uriOf(*finding.file)}, {"uriBaseId", "ROOT"}}}};
  if (finding.line) {
    json::object region{{"startLine", *finding.line}};
    if (finding.column) region["startColumn"] = *finding.column;
    place["region"] = std::move(region);
  }
  result["locations"] = json::array{json::object{{"physicalLocation", std::move(place)}}};
  return result;
}

/// What a workflow command cannot hold as it is, written with percent signs.
std::string escaped(std::string_view text, bool isProperty) {
  std::string result;
  for (const char c : text) {
    if (c == '%') {
      result += "%25";
    } else if (c == '\r') {
      result += "%0D";
    } else if (c == '\n') {
      result += "%0A";
    } else if (isProperty && c == ':') {
      result += "%3A";
    } else if (isProperty && c == ',') {
      result += "%2C";
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::string renderJson(const Findings& findings) {
  json::array list;
  for (const Finding& finding : findings) list.emplace_back(toJson(finding));
  const std::array<std::size_t, 3> counts = countOf(findings);
  return prettyJson(json::object{
      {"findings", std::move(list)},
      {"counts", {{"error", counts[2]}, {"warning", counts[1]}, {"note", counts[0]}}}});
}

std::string renderSarif(const Findings& findings) {
  json::array rules;
  for (const Rule& rule : allRules()) rules.emplace_back(sarifRule(rule));
  json::array results;
  for (const Finding& finding : findings) results.emplace_back(sarifResult(finding));
  json::object driver{
      {"name", "bootforge-analyze"}, {"version", version()}, {"rules", std::move(rules)}};
  json::object run{{"tool", {{"driver", std::move(driver)}}},
                   {"columnKind", "unicodeCodePoints"},
                   {"results", std::move(results)}};
  return prettyJson(json::object{{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                                 {"version", "2.1.0"},
                                 {"runs", json::array{std::move(run)}}});
}

std::string renderGithub(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    const Severity severity = finding.rule->severity;
    text += "::" + std::string(severity == Severity::Note ? "notice" : nameOf(severity));
    text += " title=" + escaped(finding.rule->name, true);
    if (finding.file) {
      text += ",file=" + escaped(jsonText(finding.file->substr(1)), true);
    }
    if (finding.line) text += ",line=" + std::to_string(*finding.line);
    if (finding.column) text += ",col=" + std::to_string(*finding.column);
    text += "::" + escaped(jsonText(finding.message + "\n" + helpOf(finding)), false) + '\n';
  }
  return text;
}

}  // namespace bootforge::analyze
