#pragma once

#include "sigweave/platform/Export.h"

// One declared parameter of a module. A module keeps a constant table of these; the texts must live as long
// as the program.
struct TCModuleParameter {
    // FILE and OUTPUT_FILE are texts that name a file. A host takes a relative FILE from a graph file as
    // relative to that file's folder; a relative OUTPUT_FILE is always relative to the current directory.
    enum Kind { INTEGER, NUMBER, TEXT, CHOICE, SWITCH, FILE, OUTPUT_FILE };

    const char* name;
    Kind kind;
    const char* defaultValue;                  // as text; null: the parameter must be given
    const char* unit = "";                     // SI text, for example "Hz"; empty: none
    const char* help = "";                     // one line
    double minimum = -1.7976931348623157e308;  // of INTEGER and NUMBER, both ends allowed
    double maximum = 1.7976931348623157e308;
    const char* choices = "";  // of CHOICE: the allowed words, separated by '|'; a SWITCH takes yes and no
};
