#pragma once

#include <string>

// What graph files can name. Each answers why a name cannot be used, as the end of a sentence that begins
// with the name; empty when it can.
namespace host::check {

std::string WhyNoId(const std::string& id);
std::string WhyNoPortName(const std::string& name, bool isOutput);
std::string WhyNoParameterName(const std::string& name);

}  // namespace host::check
