#include "host/ModuleLibrary.h"

#include <algorithm>

#include "sigweave/platform/ModuleHandle.h"

namespace host {
namespace {

constexpr int MAX_KINDS = 100000;  // more is a library that answers nonsense

struct Remedy {
    const char* sign;  // in the words of the system's loader
    const char* text;
};

constexpr Remedy REMEDIES[] = {
    {"undefined symbol",
     "a symbol that it needs is nowhere defined: link it with the library that defines it, and build it "
     "against the installed sigweave"},
    {"invalid ELF header", "the file is no module library: remove it from the module path or build it again"},
    {"file too short", "the file is no module library or was cut off: build it again"},
    {"wrong ELF class", "it was built for another kind of processor: build it on this machine"},
    {"cannot open shared object file", "a library that it needs is missing: install that library"},
    {"version `", "it needs a newer system library than there is here: build it on this machine"},
};

const char* FindRemedy(const std::string& reason) {
    if (reason.starts_with("cannot open")) return "check where the link leads, and the permissions";
    for (const Remedy& remedy : REMEDIES)
        if (reason.find(remedy.sign) != std::string::npos) return remedy.text;
    return "build it again on this machine";
}

template <class Function>
bool Find(HINSTANCE handle, const char* name, Function& function, std::string& missing) {
    function = reinterpret_cast<Function>(GetProcAddress(handle, name));
    if (function == nullptr && missing.empty()) missing = name;
    return function != nullptr;
}

}  // namespace

std::unique_ptr<ModuleLibrary> ModuleLibrary::Open(const std::string& file, std::string& error) {
    HINSTANCE handle = TCLoadModuleLibrary(file, error);
    if (handle == nullptr) {
        if (error.starts_with(file + ": ")) error.erase(0, file.size() + 2);
        error = "cannot be loaded (" + error + "); " + FindRemedy(error);
        return nullptr;
    }
    std::unique_ptr<ModuleLibrary> library(new ModuleLibrary(file, handle));
    const bool fits =
        library->FindEntryPoints(error) && library->CheckVersions(error) && library->ReadIds(error);
    return fits ? std::move(library) : nullptr;
}

ModuleLibrary::~ModuleLibrary() {
    TCFreeModuleLibrary(handle);
}

bool ModuleLibrary::FindEntryPoints(std::string& error) {
    std::string missing;
    Find(handle, "TCModuleLibrary_GetCount", count, missing);
    Find(handle, "TCModuleLibrary_GetId", id, missing);
    Find(handle, "TCModuleLibrary_Create", create, missing);
    Find(handle, "TCModuleLibrary_Delete", destroy, missing);
    if (missing.empty()) return true;
    error = "does not export " + missing +
            ", so it is no module library; write TC_MODULE_LIBRARY(...) once in its source, or "
            "remove the file from the module path";
    return false;
}

bool ModuleLibrary::CheckVersions(std::string& error) const {
    const int provided = TCGetInterfaceVersionProvidedByBase(handle);
    const int required = TCGetInterfaceVersionRequiredByBase(handle);
    const int ownProvided = TCGetInterfaceVersionProvidedByBase(nullptr);
    const int ownRequired = TCGetInterfaceVersionRequiredByBase(nullptr);
    if (required > ownProvided) {
        error = "needs interface version " + std::to_string(required) + ", and this program provides " +
                std::to_string(ownProvided) +
                "; install a newer sigweave or build the library against this one";
        return false;
    }
    if (provided >= ownRequired) return true;
    error = "provides interface version " + std::to_string(provided) + ", and this program needs at least " +
            std::to_string(ownRequired) + "; build the library against this sigweave";
    return false;
}

bool ModuleLibrary::ReadIds(std::string& error) {
    const int kinds = count();
    for (int kind = 0; kind < kinds && kinds <= MAX_KINDS; ++kind) {
        const char* text = id(kind);
        if (text == nullptr || *text == '\0') break;
        if (std::find(ids.begin(), ids.end(), text) != ids.end()) {
            error = "offers the module id '" + std::string(text) +
                    "' twice; give each class in TC_MODULE_LIBRARY(...) an ID of its own";
            return false;
        }
        ids.emplace_back(text);
    }
    if (kinds > 0 && static_cast<std::size_t>(kinds) == ids.size()) return true;
    error = kinds == 0 ? "offers no module; name its classes in TC_MODULE_LIBRARY(...)"
                       : "says that it offers " + std::to_string(kinds) +
                             " modules but does not name each; build it anew with "
                             "TC_MODULE_LIBRARY(...)";
    return false;
}

}  // namespace host
