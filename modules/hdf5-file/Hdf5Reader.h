#pragma once

#include <memory>
#include <string>

#include "modules/common/ArraySource.h"

// Opens a dataset of numbers with one or two dimensions, which is read by pieces; without a name the only
// one, or that called "samples". Name, unit, samplerate and start come from its attributes and those of the
// groups that it is in. Null with a line in `error`, which begins with the parameter's name: "file",
// "dataset".
std::unique_ptr<tc::ArrayReader> OpenHdf5(const std::string& path, const std::string& dataset,
                                          tc::ArrayLayout layout, std::string& error);

// The same of a MAT file of version 7.3, whose arrays are datasets of HDF5 with the dimensions in reverse
// order: "variable" is the parameter, and the facts come from other variables, as fs or unit.
std::unique_ptr<tc::ArrayReader> OpenHdf5Mat(const std::string& path, const std::string& variable,
                                             tc::ArrayLayout layout, std::string& error);
