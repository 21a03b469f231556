#pragma once

#include <string>
#include <vector>

namespace host {

// Rows of one length, laid out in columns as wide as their widest cell; `rightColumn` (-1: none) is aligned
// to the right. Each line begins with `indent`.
std::string LayOut(const std::vector<std::vector<std::string>>& rows, int rightColumn = -1,
                   const char* indent = "");

// With a point in every locale.
std::string NumberText(double value, int significantDigits);

}  // namespace host
