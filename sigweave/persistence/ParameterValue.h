#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sigweave/persistence/ParameterSyntax.h"
#include "sigweave/persistence/TCProcessParameters.h"

namespace tc {

// What a value's text says when it is read as a number. Independent of the locale.
struct ValueNumbers {
    TCProcessParameters::ParamValType type = TCProcessParameters::STRING;
    int integer = 0;    // of the integer that the text begins with, limited to the range of int
    double real = 0.0;  // of the number that the text begins with
};
ValueNumbers ReadNumbers(std::string_view text, bool decimalComma);

// What a value says, from the way it is written: without its quotation marks, and with `escaped` without its
// escapes. False when an escape is wrong.
bool ReadText(TCString& value, std::string_view written, bool escaped);

// The ways to write a value, the best first: as it is, unless it contains a delimiter; in quotation marks, if
// it can be. Not every one need survive in a given text, so the caller reads back what it wrote.
std::vector<std::string> WaysToWrite(std::string_view value, const ParameterSyntax& syntax);

}  // namespace tc
