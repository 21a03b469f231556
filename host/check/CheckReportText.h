#pragma once

#include <string>

#include "host/check/ModuleChecker.h"

namespace host::check {

// A table for people, with the verdict at its end.
std::string WriteText(const CheckReport& report);
// One JSON document.
std::string WriteJson(const CheckReport& report);

}  // namespace host::check
