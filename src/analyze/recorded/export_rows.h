// A recorded boot for other programs.
#pragma once

#include <string>

#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// Comma-separated values: a line of headings, then one for each plugin in the log's order. Fields
/// are quoted where they need it; null is an empty field.
std::string asCsv(const Timeline& timeline);

/// One JSON object a line for each plugin in the log's order.
std::string asJsonLines(const Timeline& timeline);

/// Trace events: a complete event for each plugin that ran, a thread for each worker.
std::string asTraceEvents(const Timeline& timeline);

/// OTLP/JSON: a root span for the boot with a span for each plugin that ran.
std::string asOtlp(const Timeline& timeline);

/// Prometheus text for a node exporter's textfile collector.
std::string asPrometheus(const Timeline& timeline);

}  // namespace bootforge::analyze
