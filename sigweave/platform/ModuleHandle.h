#pragma once

#include <string>

#include "sigweave/platform/Export.h"

// A loaded module library. Null means "no library".
using HINSTANCE = void*;

// Loads the library with every symbol resolved at once and none of them visible to other libraries. Null on
// failure; `error` then says why, in the words of the system's loader.
TC_API HINSTANCE TCLoadModuleLibrary(const std::string& path, std::string& error);

// Nothing that came from the library may be used afterwards. Null is ignored.
TC_API void TCFreeModuleLibrary(HINSTANCE library);

// The address of a function or table that the library itself exports, not one that it is linked with; null
// for a null library or an unknown name.
TC_API void* GetProcAddress(HINSTANCE library, const char* name);
