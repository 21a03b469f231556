#pragma once

#include "sigweave/module/TCModuleParameter.h"

// Parameters and messages that several modules have, each written once.
namespace tc {

// The group of the two that follow, and of what else places samples in time.
inline constexpr Bilingual TIME_GROUP("Time", "Zeit");

// The samples that a source puts into a block.
inline constexpr TCModuleParameter BLOCK_PARAMETER = {.name = "block",
                                                      .kind = TCModuleParameter::INTEGER,
                                                      .defaultValue = "1024",
                                                      .help = {"samples per block", "Abtastwerte je Block"},
                                                      .minimum = 1.0,
                                                      .maximum = 1048576.0,
                                                      .label = {"Block size", "Blockgröße"},
                                                      .group = TIME_GROUP};

// To be read with ParseStart.
inline constexpr TCModuleParameter START_PARAMETER = {
    .name = "start",
    .kind = TCModuleParameter::TEXT,
    .defaultValue = "",
    .help = {"UTC time of the first sample, as 2026-03-01T12:00:00Z; empty: the time of the run",
             "Zeit des ersten Abtastwerts in UTC, wie 2026-03-01T12:00:00Z; leer: die Zeit des Laufs"},
    .label = {"Start time", "Startzeit"},
    .group = TIME_GROUP};

// How the stored numbers of a source become its values.
inline constexpr Bilingual CALIBRATION_GROUP("Calibration", "Kalibrierung");
inline constexpr TCModuleParameter FACTOR_PARAMETER = {
    .name = "factor",
    .kind = TCModuleParameter::NUMBER,
    .defaultValue = "1",
    .help = {"multiplies the values", "multipliziert die Werte"},
    .label = {"Factor", "Faktor"},
    .group = CALIBRATION_GROUP};
inline constexpr TCModuleParameter OFFSET_PARAMETER = {
    .name = "offset",
    .kind = TCModuleParameter::NUMBER,
    .defaultValue = "0",
    .help = {"is added after the multiplication", "wird nach der Multiplikation addiert"},
    .label = {"Offset", "Versatz"},
    .group = CALIBRATION_GROUP};
// To be read with ParseUnit.
inline constexpr TCModuleParameter CALIBRATED_UNIT_PARAMETER = {
    .name = "unit",
    .kind = TCModuleParameter::TEXT,
    .defaultValue = "",
    .help = {"of the values that result: SI text, as V * 1e-003",
             "der entstehenden Werte: SI-Text, wie V * 1e-003"},
    .label = {"Unit", "Einheit"},
    .group = CALIBRATION_GROUP};

// Of a file that is read when the settings are checked, and again when the run begins.
inline constexpr Bilingual HAS_CHANGED("%1 has changed since it was checked",
                                       "%1 hat sich seit der Prüfung geändert");

}  // namespace tc
