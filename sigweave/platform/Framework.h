#pragma once

#include <string>
#include <vector>

// The second string and array family of the interface, for callers that keep their data in standard
// containers.
using CString = std::string;
using CStringArray = std::vector<std::string>;

template <typename T, typename Arg = const T&>
using CArray = std::vector<T>;
