#pragma once

#include <string>

#include "host/RunReport.h"

namespace host {

// One line for a terminal: "12.5 s of signal, 40 %, 830 MB/s", without what is not known.
std::string WriteProgress(const RunProgress& progress);

}  // namespace host
