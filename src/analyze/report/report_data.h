// What the page of a recorded boot knows.
#pragma once

#include <boost/json/object.hpp>
#include <vector>

#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/messages_reader.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// The boot as one object:
///
///   boot, plugins   as `blame` tells them by start; each plugin has these keys, too:
///     kind          "json", "native", "debug", "script"; null for one without a description
///     executor      whether its run uses the CLI executor
///     requires      numbers of gates
///     levels        it waits for the first so many gates as well, which are levels of scripts
///     provides      numbers of gates
///     saves         {"half", "none", "native"}: what the boot would gain; null: not worked out
///     messages      [[time, text], ...]
///   gates           names of milestones and levels
///   chain           as `critical-chain` tells it; `plugin` and, in `after`, `plugin` are numbers
///   of
///                   plugins
///   absent          [{"name", "reason"}]: described and not in the log
///   model           {"makespan", "error"} of the simulated boot
///   summary         the boot in one line
///   is_daemon_run, has_messages, notes
boost::json::object reportData(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                               const BootMessages* messages);

}  // namespace bootforge::analyze
