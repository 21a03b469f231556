#pragma once

#include <string>
#include <vector>

#include "sigweave/module/TCModuleParameter.h"

namespace host::check {

// Values that the declaration of a parameter allows: the default, the limits, each choice, texts of all
// kinds.
std::vector<std::string> AllowedValues(const TCModuleParameter& parameter);
// Values that it must refuse; none for texts.
std::vector<std::string> ForbiddenValues(const TCModuleParameter& parameter);

}  // namespace host::check
