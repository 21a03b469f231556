#include "host/ModuleLibrary.h"

#include <algorithm>
#include <filesystem>

#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/platform/ModuleHandle.h"
#include "sigweave/platform/Process.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr int MAX_KINDS = 100000;  // more is a library that answers nonsense

struct Remedy {
    const char* sign;  // in the words of the system's loader
    Bilingual text;
};

constexpr Remedy REMEDIES[] = {
    {"undefined symbol",
     {"a symbol that it needs is nowhere defined: link it with the library that defines it, and build it "
      "against the installed sigweave",
      "ein Symbol, das sie braucht, ist nirgends definiert: binden Sie die Bibliothek, die es definiert, und "
      "bauen Sie gegen das installierte sigweave"}},
    {"invalid ELF header",
     {"the file is no module library: remove it from the module path or build it again",
      "die Datei ist keine Modulbibliothek: nehmen Sie sie aus dem Modulpfad, oder bauen Sie sie neu"}},
    {"file too short",
     {"the file is no module library or was cut off: build it again",
      "die Datei ist keine Modulbibliothek oder abgeschnitten: bauen Sie sie neu"}},
    {"Is a directory",
     {"name the library in that folder, as build/LowPass.so",
      "nennen Sie die Bibliothek in diesem Ordner, wie build/LowPass.so"}},
    {"wrong ELF class",
     {"it was built for another kind of processor: build it on this machine",
      "sie wurde für eine andere Prozessorart gebaut: bauen Sie sie auf diesem Rechner"}},
    {"cannot open shared object file",
     {"a library that it needs is missing: install that library",
      "eine Bibliothek, die sie braucht, fehlt: installieren Sie diese"}},
    {"version `",
     {"it needs a newer system library than there is here: build it on this machine",
      "sie braucht eine neuere Systembibliothek als die hiesige: bauen Sie sie auf diesem Rechner"}},
};

const char* FindRemedy(const std::string& reason) {
    if (reason.starts_with("cannot open"))
        return Bilingual("check the path and the permissions, and where it leads when it is a link",
                         "prüfen Sie den Pfad und die Rechte, und bei einem Verweis, wohin er führt")
            .Text();
    for (const Remedy& remedy : REMEDIES)
        if (reason.find(remedy.sign) != std::string::npos) return remedy.text.Text();
    return Bilingual("build it again on this machine", "bauen Sie sie auf diesem Rechner neu").Text();
}

// Answers the number of the file's first kind; negative, with the reason in `error`, when it has none.
using PythonLoad = int (*)(const char* file, int* count, char* error, int size);

std::string pythonLoader;

std::string PythonLoader() {
    if (!pythonLoader.empty()) return pythonLoader;
    return (std::filesystem::path(TCGetProgramFolder()) / "../lib/sigweave/python/loader.so")
        .lexically_normal()
        .string();
}

template <class Function>
bool Find(HINSTANCE handle, const char* name, Function& function, std::string& missing) {
    function = reinterpret_cast<Function>(GetProcAddress(handle, name));
    if (function == nullptr && missing.empty()) missing = name;
    return function != nullptr;
}

}  // namespace

void ModuleLibrary::SetPythonLoader(const std::string& loaderFile) {
    pythonLoader = loaderFile;
}

std::unique_ptr<ModuleLibrary> ModuleLibrary::OpenPython(const std::string& file, std::string& error,
                                                         Step& step) {
    step = Step::Load;
    const std::string loader = PythonLoader();
    std::string reason;
    HINSTANCE const handle = TCLoadModuleLibrary(loader, reason);
    if (handle == nullptr) {
        error = Bilingual(
                    "is a module in Python, for which the package sigweave of Python is needed (%1); install "
                    "python3-sigweave",
                    "ist ein Modul in Python und braucht das Python-Paket sigweave (%1); installieren "
                    "Sie python3-sigweave")
                    .With({reason});
        return nullptr;
    }
    std::unique_ptr<ModuleLibrary> library(new ModuleLibrary(file, handle));
    PythonLoad load = nullptr;
    std::string missing;
    if (!library->FindEntryPoints(error) || !Find(handle, "SigweavePython_Load", load, missing))
        return nullptr;
    char text[2000] = "";
    int count = 0;
    library->first = load(file.c_str(), &count, text, sizeof text);
    error = text;
    if (library->first < 0) return nullptr;
    for (int kind = 0; kind < count; ++kind) library->ids.emplace_back(library->id(library->first + kind));
    step = Step::Done;
    return library;
}

std::unique_ptr<ModuleLibrary> ModuleLibrary::Open(const std::string& file, std::string& error,
                                                   Step* failed) {
    Step step = Step::Load;
    std::unique_ptr<ModuleLibrary> library;
    if (file.ends_with(".py")) {
        library = OpenPython(file, error, step);
    } else if (HINSTANCE handle = TCLoadModuleLibrary(file, error); handle == nullptr) {
        if (error.starts_with(file + ": ")) error.erase(0, file.size() + 2);
        error = Bilingual("cannot be loaded (%1); %2", "lässt sich nicht laden (%1); %2")
                    .With({error, FindRemedy(error)});
    } else {
        library.reset(new ModuleLibrary(file, handle));
        step = library->Prepare(error);
    }
    if (failed != nullptr) *failed = step;
    return step == Step::Done ? std::move(library) : nullptr;
}

ModuleLibrary::Step ModuleLibrary::Prepare(std::string& error) {
    if (!FindEntryPoints(error)) return Step::EntryPoints;
    error = WhyVersionsDiffer();
    if (!error.empty()) return Step::Versions;
    return ReadIds(error) ? Step::Done : Step::Ids;
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
    error =
        Bilingual(
            "does not export %1, so it is no module library; write TC_MODULE_LIBRARY(...) once in its "
            "source, or remove the file from the module path",
            "exportiert %1 nicht und ist daher keine Modulbibliothek; schreiben Sie TC_MODULE_LIBRARY(...) "
            "einmal in ihren Quelltext, oder nehmen Sie die Datei aus dem Modulpfad")
            .With({missing});
    return false;
}

std::string ModuleLibrary::WhyVersionsDiffer() const {
    const int provided = TCGetInterfaceVersionProvidedByBase(handle);
    const int required = TCGetInterfaceVersionRequiredByBase(handle);
    if (required > TC_INTERFACE_VERSION)
        return Bilingual(
                   "needs interface version %1, and this program provides %2; install a newer sigweave or "
                   "build the library against this one",
                   "braucht die Schnittstellenversion %1, dieses Programm bietet %2; installieren Sie ein "
                   "neueres sigweave, oder bauen Sie die Bibliothek gegen dieses")
            .With({std::to_string(required), std::to_string(TC_INTERFACE_VERSION)});
    if (provided >= TC_INTERFACE_VERSION) return "";
    return Bilingual(
               "was built with older headers: it provides interface version %1, and this program needs %2; "
               "build the library again, against this sigweave",
               "wurde mit älteren Headern gebaut: sie bietet die Schnittstellenversion %1, dieses Programm "
               "braucht %2; bauen Sie die Bibliothek neu, gegen dieses sigweave")
        .With({std::to_string(provided), std::to_string(TC_INTERFACE_VERSION)});
}

bool ModuleLibrary::ReadIds(std::string& error) {
    const int kinds = count();
    for (int kind = 0; kind < kinds && kinds <= MAX_KINDS; ++kind) {
        const char* text = id(kind);
        if (text == nullptr || *text == '\0') break;
        if (std::find(ids.begin(), ids.end(), text) != ids.end()) {
            error = Bilingual(
                        "offers the module id '%1' twice; give each class in TC_MODULE_LIBRARY(...) an ID of "
                        "its own",
                        "bietet die Modulkennung '%1' zweimal an; geben Sie jeder Klasse in "
                        "TC_MODULE_LIBRARY(...) eine eigene ID")
                        .With({text});
            return false;
        }
        ids.emplace_back(text);
    }
    if (kinds > 0 && static_cast<std::size_t>(kinds) == ids.size()) return true;
    error =
        kinds == 0
            ? Bilingual("offers no module; name its classes in TC_MODULE_LIBRARY(...)",
                        "bietet kein Modul an; nennen Sie ihre Klassen in TC_MODULE_LIBRARY(...)")
                  .Text()
            : Bilingual(
                  "says that it offers %1 modules but does not name each; build it anew with "
                  "TC_MODULE_LIBRARY(...)",
                  "gibt %1 Module an, nennt aber nicht jedes; bauen Sie sie mit TC_MODULE_LIBRARY(...) neu")
                  .With({std::to_string(kinds)});
    return false;
}

}  // namespace host
