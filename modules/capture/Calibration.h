#pragma once

#include <string>
#include <vector>

#include "sigweave/signal/TCSI_Unit.h"

// By what the values of a channel are multiplied, what results, and when that was found out.
struct Calibration {
    double factor = 1.0;
    TCSI_Unit unit = {};
    double date = 0.0;  // milliseconds since 1970-01-01 00:00 UTC; 0: not said
};

// The setting "calibration": entries such as "1: 0.0125 Pa 2026-03-01", between commas, of channels from 1
// on; unit and date may be left out. Others have none. False, with a line in `error`, for anything else.
bool ReadCalibration(const std::string& text, int channels, std::vector<Calibration>& calibrations,
                     std::string& error);
