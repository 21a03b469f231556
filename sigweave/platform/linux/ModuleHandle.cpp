#include "sigweave/platform/ModuleHandle.h"

#include <dlfcn.h>

HINSTANCE TCLoadModuleLibrary(const std::string& path, std::string& error) {
    HINSTANCE library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = dlerror();
        error = reason != nullptr ? reason : "the loader gave no reason";
    }
    return library;
}

void TCFreeModuleLibrary(HINSTANCE library) {
    if (library != nullptr) dlclose(library);
}

void* GetProcAddress(HINSTANCE library, const char* name) {
    return library != nullptr ? dlsym(library, name) : nullptr;
}
