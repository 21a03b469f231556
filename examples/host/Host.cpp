// The smallest complete host: it lets a source run into a sink and prints the sink's figures.
//
//   smallest-host SOURCE.so "settings" SINK.so       such as: generator.so "duration=2" statistics.so
#include <dlfcn.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "sigweave/sigweave.h"

namespace {

// The first module of a library. The library deletes what it created, and stays open until then.
class Module {
 public:
    explicit Module(const char* file) : library(dlopen(file, RTLD_NOW | RTLD_LOCAL), dlclose) {
        if (library == nullptr) throw std::runtime_error(dlerror());
        if (TCGetInterfaceVersionProvidedByBase(library.get()) < TC_INTERFACE_VERSION)
            throw std::runtime_error(std::string(file) + " was built with older headers; build it again");
        if (TCGetInterfaceVersionRequiredByBase(library.get()) > TC_INTERFACE_VERSION)
            throw std::runtime_error(std::string(file) + " needs a newer host");
        const auto create = Find<decltype(TCModuleLibrary_Create)>("TCModuleLibrary_Create");
        const auto destroy = Find<decltype(TCModuleLibrary_Delete)>("TCModuleLibrary_Delete");
        if (create != nullptr && destroy != nullptr)
            module = {create(0, 0), [destroy](TCBaseModule* created) { destroy(0, created); }};
        if (Get() == nullptr) throw std::runtime_error(std::string(file) + " holds no module with settings");
    }
    TCBaseModuleEx* operator->() const { return Get(); }

 private:
    template <typename Function>
    Function* Find(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(library.get(), name));
    }
    TCBaseModuleEx* Get() const { return dynamic_cast<TCBaseModuleEx*>(module.get()); }

    std::unique_ptr<void, int (*)(void*)> library;
    std::shared_ptr<TCBaseModule> module;
};

// A line: both ends learn of it, the input checks the type, and its stream becomes a receiver of the output.
void Wire(const Module& from, const Module& to) {
    const char* type = nullptr;
    int items = 0;
    from->GetPortType(OUTPUT, 0, type, items);
    if (to->ValidatePortType(INPUT, 0, type, items) != 1) throw std::runtime_error("the types do not fit");
    from->AddLine(OUTPUT, 0);
    to->AddLine(INPUT, 0);
    from->AddOutputStream(0, to->SetInputStream(0, 0, 9));
}

void Begin(const Module& module) {
    module->ComputeValidationData(CALLED_FROM_RUN);
    module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
    if (module->Init() < 0) throw std::runtime_error(module->GetLastErrorText());
}

// Whether it had work.
bool Step(const Module& module) {
    if (module->Fetch() != 0) return false;
    if (module->Execute() < 0) throw std::runtime_error(module->GetLastErrorText());
    return true;
}

void End(const Module& module) {
    module->Done();
    module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
}

void Run(const Module& source, const Module& sink) {
    Wire(source, sink);
    Begin(sink);
    Begin(source);
    while (Step(sink) || Step(source)) continue;  // the sink first, so that nothing piles up before it
    End(source);
    End(sink);
    source->DeleteStreams();
    sink->DeleteStreams();
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 4) throw std::runtime_error("usage: smallest-host SOURCE.so \"settings\" SINK.so");
    const Module source(argv[1]);
    const Module sink(argv[3]);
    if (TCString error; !source->SetSettings(argv[2], error)) throw std::runtime_error(std::string(error));
    Run(source, sink);
    for (const TCModuleResult& result : sink->GetResults())
        std::printf("%s %s = %.10g %s\n", static_cast<const char*>(result.signal),
                    static_cast<const char*>(result.quantity), result.value,
                    static_cast<const char*>(result.unit));
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
