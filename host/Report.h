#pragma once

#include <string>

#include "host/RunReport.h"

namespace host {

// The results of a run as an aligned table, one line a figure; empty when there are none.
std::string WriteTable(const RunReport& report);

// One line: the verdict, and what is behind it. `graph` is the file's name.
std::string WriteVerdict(const RunReport& report, const std::string& graph);

// The whole report as one JSON document. Numbers have all digits that their doubles need and a point in every
// locale; what JSON has no number for (NaN, infinity) is null; bytes that are no UTF-8 become U+FFFD.
std::string WriteJson(const RunReport& report, const std::string& graph);

}  // namespace host
