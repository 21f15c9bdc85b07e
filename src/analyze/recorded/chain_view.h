// The critical chain, shown.
#pragma once

#include <boost/json/object.hpp>
#include <optional>
#include <string>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/critical_chain.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// A link with the keys of the command `critical-chain`.
boost::json::object rowOf(const Timeline& timeline, const ChainLink& link);

/// The chain to the end of the boot or to a named plugin; status 1 when that one did not run.
Answer showCriticalChain(const Timeline& timeline, const std::optional<std::string>& name,
                         Format format, const TextStyle& style);

}  // namespace bootforge::analyze
