// A library built for an interface that this program does not have yet. Creating a module would crash.
#include <cstdlib>

#include "sigweave/module/ModuleLibrary.h"

int TCModuleLibrary_GetCount() {
    return 1;
}
const char* TCModuleLibrary_GetId(int) {
    return "FromTheFuture";
}
TCBaseModule* TCModuleLibrary_Create(int, int) {
    std::abort();
}
void TCModuleLibrary_Delete(int, TCBaseModule*) {}
int TCGetInterfaceVersionProvidedByModule() {
    return 900;
}
int TCGetInterfaceVersionRequiredByModule() {
    return 900;
}
