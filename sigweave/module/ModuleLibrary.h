#pragma once

#include <cstddef>
#include <iterator>
#include <type_traits>

#include "sigweave/module/TCBaseModule.h"
#include "sigweave/platform/Export.h"

// What a module library exports. Kinds are numbered from 0; ids are the stable names that graph files use.
extern "C" {
TC_API int TCModuleLibrary_GetCount();
// Valid as long as the library is loaded; null when there is no such kind.
TC_API const char* TCModuleLibrary_GetId(int kind);
// A new module, which the caller owns and gives back to TCModuleLibrary_Delete of this library, with the same
// kind. Null when there is no such kind: nothing was created then. What the constructor throws comes out.
TC_API TCBaseModule* TCModuleLibrary_Create(int kind, int instance);
// Deletes a module of that kind as the class that it is. Ignored when there is no such kind; null is allowed.
TC_API void TCModuleLibrary_Delete(int kind, TCBaseModule* module);
// The interface version of the headers that the library was built with: TC_INTERFACE_VERSION, from both.
TC_API int TCGetInterfaceVersionProvidedByModule();
TC_API int TCGetInterfaceVersionRequiredByModule();
}

// The interface between library, host and modules that these headers describe; a module library states it as
// what it provides and as what it requires. Raised whenever a module that was built with older headers would
// be misread: a structure has grown, or a virtual operation was appended. A host refuses a library that
// provides less, or requires more, before it creates a module.
//
// 801: a parameter also has what a form needs; GetFiles, CheckStart and ForetellOutput were appended.
// 802: OnLiveChanged, OfferRunFacts and GetWaitHandle were appended.
inline constexpr int TC_INTERFACE_VERSION = 802;

// What a library that states nothing counts as providing and requiring, and the least that any counts as.
inline constexpr int TC_INTERFACE_VERSION_PROVIDED = 800;
inline constexpr int TC_INTERFACE_VERSION_REQUIRED = 700;

namespace tc {

struct ModuleKind {
    const char* id;
    TCBaseModule* (*create)(int instance);
    void (*destroy)(TCBaseModule* module);
};

template <class Module>
constexpr ModuleKind MakeModuleKind() {
    static_assert(std::is_final_v<Module>,
                  "declare the module class final: it is deleted as exactly that class");
    return {Module::ID, [](int instance) -> TCBaseModule* { return new Module(instance); },
            [](TCBaseModule* module) { delete static_cast<Module*>(module); }};
}

template <class... Modules>
inline constexpr ModuleKind MODULE_KINDS[] = {MakeModuleKind<Modules>()...};

template <class... Modules>
constexpr const ModuleKind* FindModuleKind(int kind) {
    const bool valid = kind >= 0 && static_cast<std::size_t>(kind) < sizeof...(Modules);
    return valid ? &MODULE_KINDS<Modules...>[kind] : nullptr;
}

}  // namespace tc

// Written once in a module library, with the classes that it offers: TC_MODULE_LIBRARY(Gain, Offset)
// Each class is final, has a constructor that takes the instance number, and a constant `ID`.
#define TC_MODULE_LIBRARY(...)                                               \
    int TCModuleLibrary_GetCount() {                                         \
        return static_cast<int>(std::size(tc::MODULE_KINDS<__VA_ARGS__>));   \
    }                                                                        \
    const char* TCModuleLibrary_GetId(int kind) {                            \
        const tc::ModuleKind* found = tc::FindModuleKind<__VA_ARGS__>(kind); \
        return found != nullptr ? found->id : nullptr;                       \
    }                                                                        \
    TCBaseModule* TCModuleLibrary_Create(int kind, int instance) {           \
        const tc::ModuleKind* found = tc::FindModuleKind<__VA_ARGS__>(kind); \
        return found != nullptr ? found->create(instance) : nullptr;         \
    }                                                                        \
    void TCModuleLibrary_Delete(int kind, TCBaseModule* module) {            \
        const tc::ModuleKind* found = tc::FindModuleKind<__VA_ARGS__>(kind); \
        if (found != nullptr && module != nullptr) found->destroy(module);   \
    }                                                                        \
    int TCGetInterfaceVersionProvidedByModule() {                            \
        return TC_INTERFACE_VERSION;                                         \
    }                                                                        \
    int TCGetInterfaceVersionRequiredByModule() {                            \
        return TC_INTERFACE_VERSION;                                         \
    }                                                                        \
    static_assert(true, "ask for a semicolon")
