// The failures of plugins, with their fixed texts.
#pragma once

#include <string>

#include "util/exception.h"

namespace bootforge {

/// An operation that a kind of plugin does not support; `method` is qualified,
/// "DebugPlugin::Restart".
class NotImplementedException : public Exception {
 public:
  explicit NotImplementedException(const std::string& method)
      : Exception("method `" + method + "' is not implemented") {}
};

/// An operation that ran and failed; `method` is bare, "start".
class MethodFailedException : public Exception {
 public:
  MethodFailedException(const std::string& plugin, const std::string& method,
                        const std::string& reason)
      : Exception(plugin + "->" + method + "() failed: " + reason) {}
};

/// A description that cannot be used.
class InvalidPluginException : public Exception {
 public:
  InvalidPluginException(const std::string& plugin, const std::string& reason)
      : Exception("plugin `" + plugin + "' is invalid: " + reason) {}
};

}  // namespace bootforge
