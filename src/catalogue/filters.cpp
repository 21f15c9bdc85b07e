#include "catalogue/filters.h"

#include <algorithm>
#include <boost/regex.hpp>
#include <iterator>

namespace bootforge {

Objections objectionsTo(const std::string& baseName, const std::set<std::string>& requiredFlags,
                        const std::set<std::string>& disablingFlags,
                        const std::set<std::string>& bootFlags,
                        const std::list<std::string>& denied) {
  Objections objections;
  objections.isDenied = std::find(denied.begin(), denied.end(), baseName) != denied.end();
  if (objections.isDenied) return objections;
  std::set_intersection(bootFlags.begin(), bootFlags.end(), disablingFlags.begin(),
                        disablingFlags.end(), std::back_inserter(objections.disabling));
  std::set_difference(requiredFlags.begin(), requiredFlags.end(), bootFlags.begin(),
                      bootFlags.end(), std::back_inserter(objections.missing));
  return objections;
}

std::string runOnceKey(const std::string& name, const std::string& version) {
  return name + version;
}

std::string cleanedRunOnceKey(const std::string& key) {
  static const boost::regex unusual("[^-a-zA-Z0-9._+]");
  return boost::regex_replace(key, unusual, "");
}

bool hasRunAlready(const std::string& name, const std::string& version,
                   std::set<std::string>& runOnce) {
  const std::string key = runOnceKey(name, version);
  if (runOnce.contains(key)) return true;
  runOnce.insert(cleanedRunOnceKey(key));
  return false;
}

}  // namespace bootforge
