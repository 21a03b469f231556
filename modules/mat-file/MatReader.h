#pragma once

#include <memory>
#include <string>

#include "modules/common/ArraySource.h"

// Opens a variable of real numbers, which is read by pieces; without a name the only one that is an array, or
// that called "samples". Name, unit, samplerate and start come from other variables, as fs or sample_rate.
// Null with a line in `error`, which begins with the parameter's name: "file", "variable".
std::unique_ptr<tc::ArrayReader> OpenMat(const std::string& path, const std::string& variable,
                                         tc::ArrayLayout layout, std::string& error);
