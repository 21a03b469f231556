#pragma once

#include <string>

#include "host/RunReport.h"

namespace host {

// The results of a run as an aligned table, one line a figure; empty when there are none.
std::string WriteTable(const RunReport& report);

// A stored unit as people write it: "mV" for "V * 1e-003". What is no stored unit stays as it is.
std::string ShownUnit(const std::string& stored);

// "voice.graph:7: low.upper_corner: has no effect ..."
std::string WriteMessage(const Message& message);

// The warnings, one a line; empty when there are none.
enum class Warnings { All, NotTold };
std::string WriteWarnings(const RunReport& report, Warnings which);
// How many there were, each as often as it came.
std::int64_t CountWarnings(const RunReport& report);

// The changes of live parameters, one a line; empty when there are none.
std::string WriteChangesMade(const RunReport& report);

// "3 gaps, 4,096 samples, the first at 12:00:03.21": in UTC.
std::string WriteGaps(const TCModuleGaps& gaps);

// One line: the verdict, and the reason for it. `graph` is the file's name.
std::string WriteVerdict(const RunReport& report, const std::string& graph);

// The whole report as one JSON document (docs/reports.md). Numbers have all digits that their doubles need
// and a point in every locale; what JSON has no number for (NaN, infinity) is null; bytes that are no UTF-8
// become U+FFFD.
std::string WriteJson(const RunReport& report, const std::string& graph);

}  // namespace host
