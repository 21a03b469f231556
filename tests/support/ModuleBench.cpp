#include "tests/support/ModuleBench.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "sigweave/module/TCModuleMessage.h"

namespace {

std::string& Warnings() {
    static std::string warnings;
    return warnings;
}

void Sink(const char*, TCModuleMessage::Types, const char* message) {
    Warnings() += std::string(message) + "\n";
}

template <class Function>
Function* Find(HINSTANCE library, const char* name) {
    void* address = GetProcAddress(library, name);
    if (address == nullptr) throw std::runtime_error(std::string("no function ") + name);
    return reinterpret_cast<Function*>(address);
}

}  // namespace

ModuleBench::ModuleBench(const std::string& name, const char* id) {
    library = TCLoadModuleLibrary(SIGWEAVE_MODULE_DIR "/" + name + ".so", error);
    if (library == nullptr) throw std::runtime_error(error);
    auto* getId = Find<const char*(int)>(library, "TCModuleLibrary_GetId");
    while (std::strcmp(getId(kind), id) != 0) ++kind;
    auto* create = Find<TCBaseModule*(int, int)>(library, "TCModuleLibrary_Create");
    module = dynamic_cast<TCBaseModuleEx*>(create(kind, 0));
    module->GetMessageA(TCBaseModule::MESSAGE_SINK, reinterpret_cast<long>(&Sink));
    TakeWarnings();
}

ModuleBench::~ModuleBench() {
    module->DeleteStreams();
    Find<void(int, TCBaseModule*)>(library, "TCModuleLibrary_Delete")(kind, module);
    inputs.clear();
    outputs.clear();
    TCFreeModuleLibrary(library);
}

bool ModuleBench::Set(const std::string& settings) {
    TCString reason;
    const bool done = module->SetSettings(settings.c_str(), reason);
    error = std::string(reason);
    return done;
}

void ModuleBench::WireInputs(const std::vector<const char*>& types) {
    module->GetMessageA(TCPortHelper::MESSAGE_DYN_PORTS, static_cast<long>(types.size()));
    for (int i = 0; i < static_cast<int>(types.size()); ++i) {
        const char* type = types[Index(i)];
        module->ValidatePortType(INPUT, i, type, std::strncmp(type, "TYPEINFO", 8) == 0 ? 2 : 1);
        module->AddLine(INPUT, i);
        inputs.push_back(std::make_unique<TCIOStream>());
        inputs.back()->AddOutputStream(module->SetInputStream(i, 0, 3));
    }
}

void ModuleBench::WireOutput(int output) {
    while (outputs.size() <= Index(output)) outputs.push_back(std::make_unique<Output>());
    module->AddLine(OUTPUT, output);
    module->AddOutputStream(output, outputs[Index(output)]->stream.SetInputStream(3));
}

bool ModuleBench::Start() {
    for (auto& output : outputs) {
        output->samples.clear();
        output->blocks.clear();
    }
    module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 1);
    return Check(module->Init());
}

bool ModuleBench::Feed(int input, const std::vector<double>& samples, const TestSignal& signal, int block,
                       bool first, bool last) {
    TCTypeInfo ti;
    ti.SetSignalname(signal.name.c_str());
    ti.SetSamplerate(signal.rate);
    if (!signal.unit.empty()) ti.GetUnit().FromString(signal.unit.c_str());
    const int total = static_cast<int>(samples.size());
    bool well = true;
    for (int begin = 0; begin < total && well; begin += block) {
        const int count = std::min(block, total - begin);
        const bool opens = first && begin == 0;
        const bool closes = last && begin + count == total;
        ti.SetTimestamp(signal.timestamp + 1000.0 * begin / signal.rate);
        ti.SetState(opens ? (closes ? COMPLETE : START) : closes ? STOP : BUSY);
        well = Send(input, ti, {samples.data() + begin, samples.data() + begin + count});
    }
    return well;
}

bool ModuleBench::Send(int input, const TCTypeInfo& ti, const std::vector<double>& samples) {
    Write(input, ti, samples);
    return Pump();
}

void ModuleBench::Write(int input, const TCTypeInfo& ti, const std::vector<double>& samples) {
    TCIOStream& stream = *inputs[Index(input)];
    stream.SetTI(&ti, false);
    if (samples.empty())
        stream.EndWriteSegments();
    else
        stream.WriteDblVec(samples.data(), static_cast<int>(samples.size()));
}

bool ModuleBench::Pump(int steps) {
    bool well = true;
    for (; steps > 0 && well && module->Fetch() == 0; --steps) {
        well = Check(module->Execute());
        Collect();
    }
    return well;
}

bool ModuleBench::Finish() {
    const bool well = Check(module->Done());
    module->GetMessageA(TCPortHelper::MESSAGE_RUNNING, 0);
    return well;
}

bool ModuleBench::Run() {
    const bool well = Start() && Pump();
    return Finish() && well;
}

bool ModuleBench::Run(const std::vector<double>& samples, const TestSignal& signal) {
    const bool well = Start() && Feed(0, samples, signal);
    return Finish() && well;
}

std::string ModuleBench::States(int output) const {
    std::string states;
    for (const TCTypeInfo& ti : Blocks(output)) {
        if (!states.empty()) states += " ";
        states += TCTypeInfo::BlockStateToString(ti.GetState());
    }
    return states;
}

double ModuleBench::Result(const std::string& quantity, const std::string& signal) const {
    for (const TCModuleResult& result : module->GetResults()) {
        if (signal == std::string(result.signal) && quantity == std::string(result.quantity))
            return result.value;
    }
    return std::numeric_limits<double>::quiet_NaN();
}

std::string ModuleBench::TakeWarnings() {
    return std::exchange(Warnings(), {});
}

bool ModuleBench::Check(int code) {
    if (code < 0) error = module->GetLastErrorText();
    if (code < 0 && error.empty()) error = std::string(module->GetPortHelper()->GetErrorText());
    return code >= 0;
}

void ModuleBench::Collect() {
    for (auto& output : outputs) {
        int rows = 0;
        int columns = 0;
        const double* values = nullptr;
        TCIOStream& stream = output->stream;
        const auto isEmpty = [&] { return stream.PeekTI() != nullptr && stream.GetBlockLen(0, 0) == 0; };
        while (stream.PeekDblData(0, values, &rows, &columns) > 0 || isEmpty()) {
            const TCTypeInfo* ti = stream.PeekTI();
            output->blocks.push_back(ti != nullptr ? *ti : TCTypeInfo());
            output->samples.insert(output->samples.end(), values, values + stream.GetBlockLen(0, 0));
            stream.RemoveContents(false);
        }
    }
}

std::string FreshFile(const std::string& name) {
    const std::filesystem::path path = std::filesystem::absolute(name);
    std::filesystem::remove(path);
    return path.string();
}

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}
