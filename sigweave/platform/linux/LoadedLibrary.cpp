#include "sigweave/platform/LoadedLibrary.h"

#include <dlfcn.h>

namespace tc {

std::string LibraryOf(const void* address) {
    Dl_info found;
    return dladdr(address, &found) != 0 && found.dli_fname != nullptr ? found.dli_fname : "";
}

bool ShowSymbols(const std::string& library) {
    return dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD) != nullptr;
}

}  // namespace tc
