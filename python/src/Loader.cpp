// The library through which a host opens modules in Python: it brings the interpreter along where there is
// none.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>

#include "python/src/PythonModule.h"
#include "sigweave/module/ModuleLibrary.h"
#include "sigweave/platform/LoadedLibrary.h"
#include "sigweave/services/StringResources.h"
#include "sigweave/signal/UnitText.h"

namespace py = pybind11;

namespace {

using python::Interpreter;
using python::ModuleClass;

using Declared = std::tuple<std::string, std::string, std::optional<std::string>, std::string, std::string,
                            double, double, std::string, bool>;

struct LoadedFile {
    std::filesystem::file_time_type changed;
    std::uintmax_t size = 0;
    int first = 0;
    int count = 0;
};

std::mutex lock;
std::vector<std::unique_ptr<ModuleClass>> classes;  // by the numbers of their kinds; only added to
std::map<std::string, LoadedFile> files;

const ModuleClass* FindClass(int kind) {
    const std::lock_guard guard(lock);
    return kind >= 0 && kind < static_cast<int>(classes.size())
               ? classes[static_cast<std::size_t>(kind)].get()
               : nullptr;
}

// Extensions of Python look for the interpreter among the symbols that all libraries of the process see. This
// library is opened so that nobody sees its own, and so is what it is linked with.
bool ShowInterpreter() {
    return tc::ShowSymbols(tc::LibraryOf(reinterpret_cast<const void*>(&Py_InitializeFromConfig)));
}

// The system's interpreter, whatever comes first in the path: it has NumPy. It stays to the end of the
// process.
bool StartInterpreter(std::string& error) {
    if (Py_IsInitialized() != 0) return true;
    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    config.install_signal_handlers = 0;
    PyConfig_SetBytesString(&config, &config.program_name, SIGWEAVE_PYTHON_PROGRAM);
    const PyStatus status =
        ShowInterpreter() ? Py_InitializeFromConfig(&config) : PyStatus_Error("its library cannot be opened");
    PyConfig_Clear(&config);
    if (PyStatus_Exception(status) != 0) {
        error = std::string("the interpreter cannot be started: ") +
                (status.err_msg != nullptr ? status.err_msg : "it gave no reason");
        return false;
    }
    PyEval_SaveThread();
    return true;
}

// Where the package was built; where it is installed, Python finds it by itself.
void FindPackage() {
    const std::filesystem::path own = tc::LibraryOf(reinterpret_cast<const void*>(&FindPackage));
    const std::filesystem::path package = (own.parent_path() / "../../../python").lexically_normal();
    std::error_code ignored;
    if (std::filesystem::exists(package / "sigweave/__init__.py", ignored))
        py::module_::import("sys").attr("path").attr("append")(package.string());
}

TCModuleParameter::Kind KindOf(const std::string& name) {
    using Kind = TCModuleParameter::Kind;
    const std::map<std::string, Kind> kinds = {{"INTEGER", Kind::INTEGER}, {"NUMBER", Kind::NUMBER},
                                               {"TEXT", Kind::TEXT},       {"CHOICE", Kind::CHOICE},
                                               {"SWITCH", Kind::SWITCH},   {"FILE", Kind::FILE}};
    return kinds.at(name);
}

TCModuleParameter ParameterOf(const Declared& declared, std::deque<std::string>& texts) {
    const auto& [name, kind, value, unit, help, minimum, maximum, choices, live] = declared;
    const auto keep = [&](const std::string& text) { return texts.emplace_back(text).c_str(); };
    TCModuleParameter parameter{.name = keep(name),
                                .kind = KindOf(kind),
                                .defaultValue = value ? keep(*value) : nullptr,
                                .unit = keep(unit),
                                .help = tc::Bilingual::OfOneText(keep(help)),
                                .minimum = minimum,
                                .maximum = maximum,
                                .choices = keep(choices),
                                .live = live};
    tc::UnitMeaning meaning;
    CString wrong;
    if (!unit.empty() && !tc::ReadUnit(unit, meaning, wrong)) throw py::value_error(name + ": " + wrong);
    if (value && !parameter.Allows(parameter.defaultValue))
        throw py::value_error("the default is not allowed: " +
                              std::string(parameter.DescribeRefusal(parameter.defaultValue)));
    return parameter;
}

std::unique_ptr<ModuleClass> ClassOf(const py::tuple& found) {
    auto made = std::make_unique<ModuleClass>();
    made->id = found[0].cast<std::string>();
    made->type = py::object(found[1]).release().ptr();
    made->description = found[2].cast<std::string>();
    for (const py::handle& declared : found[3])
        made->parameters.push_back(ParameterOf(declared.cast<Declared>(), made->texts));
    made->inputs = found[4].cast<std::vector<std::string>>();
    made->outputs = found[5].cast<std::vector<std::string>>();
    made->isSource = found[6].cast<bool>();
    return made;
}

void Add(const std::string& file, LoadedFile& loaded) {
    std::vector<std::unique_ptr<ModuleClass>> found;
    for (const py::handle& one : py::module_::import("sigweave._loading").attr("load")(file))
        found.push_back(ClassOf(one.cast<py::tuple>()));
    const std::lock_guard guard(lock);
    loaded.first = static_cast<int>(classes.size());
    loaded.count = static_cast<int>(found.size());
    for (auto& one : found) classes.push_back(std::move(one));
    files[file] = loaded;
}

// A file that was not changed is not run again.
bool IsKnown(const std::string& file, LoadedFile& loaded) {
    std::error_code failed;
    loaded.changed = std::filesystem::last_write_time(file, failed);
    loaded.size = std::filesystem::file_size(file, failed);
    const std::lock_guard guard(lock);
    const auto known = files.find(file);
    if (known == files.end() || known->second.changed != loaded.changed || known->second.size != loaded.size)
        return false;
    loaded = known->second;
    return true;
}

// The package takes the user's language when it is imported; here it is the host's that counts.
struct KeptLanguage {
    int language = TCGetResourceLanguage();
    ~KeptLanguage() { TCSetLoadStrResLanguage(language); }
};

std::string Load(const std::string& file, LoadedFile& loaded) {
    const KeptLanguage kept;
    std::string error;
    if (!StartInterpreter(error)) return error;
    const Interpreter interpreter;
    static bool hasPackage = false;
    try {
        if (!hasPackage) FindPackage();
        hasPackage = true;
        if (!IsKnown(file, loaded)) Add(file, loaded);
        return "";
    } catch (py::error_already_set& raised) {
        std::string trace;
        return "cannot be loaded: " + python::Explain(raised, trace);
    } catch (const std::exception& thrown) {
        return std::string("cannot be loaded: ") + thrown.what();
    }
}

}  // namespace

// The kinds of a file in Python: the number of the first, and how many. Negative, with the reason as a text
// of at most `size` bytes with its end, when there are none. One thread at a time.
extern "C" TC_API int SigweavePython_Load(const char* file, int* count, char* error, int size) {
    LoadedFile loaded;
    const std::string reason = Load(file, loaded);
    std::snprintf(error, static_cast<std::size_t>(size), "%s", reason.c_str());
    *count = loaded.count;
    return reason.empty() ? loaded.first : -1;
}

int TCModuleLibrary_GetCount() {
    const std::lock_guard guard(lock);
    return static_cast<int>(classes.size());
}

const char* TCModuleLibrary_GetId(int kind) {
    const ModuleClass* const found = FindClass(kind);
    return found != nullptr ? found->id.c_str() : nullptr;
}

TCBaseModule* TCModuleLibrary_Create(int kind, int instance) {
    const ModuleClass* const found = FindClass(kind);
    return found != nullptr ? new python::PythonModule(instance, *found) : nullptr;
}

void TCModuleLibrary_Delete(int kind, TCBaseModule* module) {
    if (FindClass(kind) != nullptr) delete static_cast<python::PythonModule*>(module);
}

int TCGetInterfaceVersionProvidedByModule() {
    return TC_INTERFACE_VERSION_PROVIDED;
}

int TCGetInterfaceVersionRequiredByModule() {
    return TC_INTERFACE_VERSION_REQUIRED;
}
