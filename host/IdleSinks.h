#pragma once

#include <vector>

#include "host/RunReport.h"
#include "host/Runner.h"

namespace host {

// A warning for each input of a sink (an instance that feeds no other) to which no block came. `lines` are
// those of the graph, in the order of the report.
std::vector<Message> FindIdleSinks(const RunReport& report, const std::vector<RunLine>& lines);

}  // namespace host
