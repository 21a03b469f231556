#include "sigweave/platform/ModuleHandle.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>

namespace {

template <class Record>
bool ReadAt(std::ifstream& file, std::uint64_t offset, Record& record) {
    return file.seekg(static_cast<std::streamoff>(offset)) &&
           file.read(reinterpret_cast<char*>(&record), sizeof record);
}

// Whether the file is shorter than its own headers say. The system's loader does not look, and the first
// touch of what is missing would end the program. Other damage is left to the loader.
bool IsCutOff(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::uint64_t>(std::max<std::streamoff>(file.tellg(), 0));
    Elf64_Ehdr header;
    if (!ReadAt(file, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_phentsize != sizeof(Elf64_Phdr))
        return false;
    for (std::uint64_t index = 0; index < header.e_phnum; ++index) {
        Elf64_Phdr part;
        if (!ReadAt(file, header.e_phoff + index * sizeof part, part)) return true;
        const bool fits = part.p_offset <= size && part.p_filesz <= size - part.p_offset;
        if (part.p_type == PT_LOAD && !fits) return true;
    }
    return false;
}

// The loader also finds what the libraries export that this one was linked with.
bool IsOwn(HINSTANCE library, const void* address) {
    const link_map* own = nullptr;
    void* owner = nullptr;
    Dl_info info;
    return dlinfo(library, RTLD_DI_LINKMAP, &own) == 0 &&
           dladdr1(address, &info, &owner, RTLD_DL_LINKMAP) != 0 && owner == own;
}

}  // namespace

HINSTANCE TCLoadModuleLibrary(const std::string& path, std::string& error) {
    if (IsCutOff(path)) {
        error = path + ": file too short";
        return nullptr;
    }
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
    void* address = library != nullptr ? dlsym(library, name) : nullptr;
    return address != nullptr && IsOwn(library, address) ? address : nullptr;
}
