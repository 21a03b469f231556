// A library that states no interface version, as one that was built with the first headers. Creating a module
// would crash.
#include <cstdlib>

#include "sigweave/module/ModuleLibrary.h"

int TCModuleLibrary_GetCount() {
    return 1;
}
const char* TCModuleLibrary_GetId(int) {
    return "FromThePast";
}
TCBaseModule* TCModuleLibrary_Create(int, int) {
    std::abort();
}
void TCModuleLibrary_Delete(int, TCBaseModule*) {}
