#include "host/ParameterGate.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/Guard.h"
#include "host/SteppedGraph.h"
#include "sigweave/module/ModuleSignals.h"
#include "sigweave/module/TCBaseModuleEx.h"
#include "sigweave/services/Bilingual.h"

namespace host {
namespace {

using tc::Bilingual;

constexpr double TOLERANCE = 1e-3;  // ms; about as much as a timestamp can hold
constexpr double NEVER = -std::numeric_limits<double>::infinity();

bool Holds(const TCIOStream& stream) {
    return stream.GetBlockCnt(nullptr) > 0;
}

// The last value of the first waiting block; false when it has none.
bool LastValue(const TCIOStream& stream, double& value) {
    const TCIOStream::DataSegment* const values = stream.GetWaitingBlock(0)->Segment(0);
    const int count = values != nullptr ? values->GetElementCount() : 0;
    if (count == 0) return false;
    if (const double* const doubles = values->GetDoubles()) return value = doubles[count - 1], true;
    if (const int* const integers = values->GetInts()) return value = integers[count - 1], true;
    return false;
}

}  // namespace

ParameterGate::ParameterGate(TCBaseModuleEx& driven, const std::string& name)
    : TCBaseModule(driven.GetInstance()), module(driven), instance(name) {}

int ParameterGate::AddSignal(int input) {
    Port& port = ports.emplace_back();
    port.input = input;
    port.last = NEVER;
    return static_cast<int>(ports.size()) - 1;
}

int ParameterGate::AddDriver(int parameter, const std::string& from) {
    Port& port = ports.emplace_back();
    port.driver = static_cast<int>(parameters.size());
    port.last = NEVER;
    parameters.emplace_back(module, parameter, from);
    return static_cast<int>(ports.size()) - 1;
}

const TCExtPar* ParameterGate::FindDriven(const std::string& parameter) const {
    const auto found =
        std::ranges::find_if(parameters, [&](const TCExtPar& each) { return each.GetName() == parameter; });
    return found != parameters.end() ? &*found : nullptr;
}

const char* ParameterGate::GetInputName(int index) {
    const Port& port = ports[static_cast<std::size_t>(index)];
    return port.driver >= 0 ? parameters[static_cast<std::size_t>(port.driver)].GetName()
                            : module.GetInputName(port.input);
}

void ParameterGate::GetPortType(PORTTYPE, int index, const char*& typeString, int& count) {
    const Port& port = ports[static_cast<std::size_t>(index)];
    if (port.input >= 0) module.GetPortType(INPUT, port.input, typeString, count);
}

TCIOStream* ParameterGate::SetInputStream(int port, int, int precision) {
    ports[static_cast<std::size_t>(port)].kept->SetInputStream(precision);
    return ports[static_cast<std::size_t>(port)].in->SetInputStream(precision);
}

void ParameterGate::AddOutputStream(int port, TCIOStream* receiver) {
    ports[static_cast<std::size_t>(port)].out->AddOutputStream(receiver);
}

void ParameterGate::DeleteStreams() {
    for (Port& port : ports)
        for (const auto& stream : {port.kept.get(), port.in.get(), port.out.get()}) stream->DeleteStreams();
}

// A line holds no block behind the end of a signal. So whole signals are taken off it, however long they must
// wait for their values; while there are very many, the source of the next one fails.
void ParameterGate::Collect(Port& port) {
    constexpr int MOST_KEPT = 4096;
    const int waiting = port.in->GetBlockCnt(nullptr);
    if (waiting == 0 || port.kept->GetBlockCnt(nullptr) > MOST_KEPT) return;
    const TCTypeInfo* const last = port.in->GetWaitingBlock(waiting - 1)->GetTI();
    if (last == nullptr || !tc::EndsSignal(last->GetState())) return;
    port.kept->CopyBlockRefs(*port.in);
    port.in->RemoveContents(true);
}

TCIOStream& ParameterGate::Front(const Port& port) {
    return Holds(*port.kept) ? *port.kept : *port.in;
}

void ParameterGate::EndLine(int port) {
    ports[static_cast<std::size_t>(port)].over = true;
}

// Of the first waiting block.
double ParameterGate::BeginOf(const Port& port) {
    const TCTypeInfo* const info = Front(port).PeekTI();
    const double time = info != nullptr ? info->GetTimestamp() : port.last;
    return std::isfinite(time) ? time : port.last;
}

double ParameterGate::EndOf(const Port& port) {
    const TCTypeInfo* const info = Front(port).PeekTI();
    const double rate = info != nullptr ? info->GetSamplerate() : 0.0;
    const double length = rate > 0.0 ? 1000.0 * Front(port).GetBlockLen(0, 0) / rate : 0.0;
    return BeginOf(port) + (std::isfinite(length) ? length : 0.0);
}

bool ParameterGate::AreSignalsOver() const {
    return std::ranges::all_of(
        ports, [](const Port& port) { return port.driver >= 0 || (port.over && !Holds(Front(port))); });
}

// When the signals go on: false while that is not known, or when they do not.
bool ParameterGate::FindNext(double& time) const {
    bool any = false;
    for (const Port& port : ports) {
        if (port.driver >= 0) continue;
        const bool holds = Holds(Front(port));
        if (!holds && !port.over) return false;
        if (holds) time = any ? std::min(time, BeginOf(port)) : BeginOf(port);
        any = any || holds;
    }
    return any;
}

// True when it is certain that no more will come.
bool ParameterGate::TakeDriversUpTo(double time) {
    bool isCertain = true;
    for (Port& port : ports) {
        if (port.driver < 0) continue;
        while (Holds(Front(port)) && EndOf(port) <= time + TOLERANCE) TakeDriver(port);
        isCertain = isCertain && (port.over || Holds(Front(port)));
    }
    return isCertain;
}

void ParameterGate::TakeDriver(Port& port) {
    TCExtPar& parameter = parameters[static_cast<std::size_t>(port.driver)];
    double value = 0.0;
    const TCTypeInfo* const info = Front(port).PeekTI();
    port.last = EndOf(port);
    const bool hasValue = LastValue(Front(port), value);
    const bool isAllowed =
        !hasValue || parameter.Take(value, info != nullptr ? info->GetUnit() : TCSI_Unit());
    if (!isAllowed) Warn(parameter);
    Front(port).RemoveContents(false);
}

bool ParameterGate::Decide(double time) {
    for (Port& port : ports) Collect(port);
    if (time == NEVER) return true;
    if (!TakeDriversUpTo(time)) return false;
    Apply();
    return true;
}

void ParameterGate::Apply() {
    TCExtPar::Apply(parameters);
    for (const TCExtPar& parameter : parameters) Warn(parameter);
}

// Once for each parameter.
void ParameterGate::Warn(const TCExtPar& parameter) {
    const bool isFirst =
        parameter.GetRefused() > 0 && std::ranges::find(warned, parameter.GetParameter()) == warned.end();
    if (!isFirst) return;
    warned.push_back(parameter.GetParameter());
    if (onWarning)
        onWarning(Bilingual("%1.%2; the value comes from %3, and the one before goes on",
                            "%1.%2; der Wert kommt von %3, der vorige gilt weiter")
                      .With({instance, parameter.GetFirstRefusal(), parameter.GetPort()}));
}

void ParameterGate::DropDrivers() {
    for (Port& port : ports)
        if (port.driver >= 0) port.kept->RemoveContents(true), port.in->RemoveContents(true);
}

int ParameterGate::Fetch() {
    const auto holds = [](const Port& port) { return Holds(Front(port)); };
    return std::ranges::any_of(ports, holds) ? 0 : 1;
}

int ParameterGate::Execute() {
    double time = 0.0;
    for (Port& port : ports) Collect(port);
    if (AreSignalsOver()) {
        DropDrivers();
        return 0;
    }
    if (!FindNext(time) || !TakeDriversUpTo(time)) return 0;
    const int code = HandOn(time);  // first, so that the module sees for which block the values are
    Apply();
    return code;
}

int ParameterGate::HandOn(double time) {
    for (Port& port : ports) {
        if (port.driver >= 0 || !Holds(Front(port)) || BeginOf(port) > time + TOLERANCE) continue;
        port.last = EndOf(port);
        const int code = port.out->ForwardBlock(Front(port));
        if (code < 0) return code;
    }
    return 0;
}

namespace {

// The lines of one module through its gate.
void InsertGate(std::size_t index, std::vector<RunModule>& modules, std::vector<RunLine>& lines,
                ParameterGate& gate) {
    const bool isSource = modules[index].module->GetTypeOfModule() == 1;
    const int at = static_cast<int>(index);
    const int behind = static_cast<int>(modules.size());
    const std::size_t count = lines.size();
    for (std::size_t i = 0; i < count; ++i) {
        RunLine line = lines[i];
        if (line.to != at || (isSource && line.parameter < 0)) continue;
        const RunModule& from = modules[static_cast<std::size_t>(line.from)];
        const int port =
            line.parameter < 0
                ? gate.AddSignal(line.input)
                : gate.AddDriver(line.parameter,
                                 from.instance + "." + Text(from.module->GetOutputName(line.output)));
        if (!isSource && line.parameter < 0) lines.push_back({behind, port, at, line.input});
        lines[i].gatePort = port;
        if (!isSource) lines[i].to = behind;
    }
    if (isSource)
        modules[index].gate = &gate;
    else
        modules.push_back({modules[index].instance, &gate, &gate});
}

}  // namespace

std::vector<std::unique_ptr<ParameterGate>> InsertGates(std::vector<RunModule>& modules,
                                                        std::vector<RunLine>& lines) {
    std::vector<std::unique_ptr<ParameterGate>> gates;
    const std::size_t count = modules.size();
    for (std::size_t index = 0; index < count; ++index) {
        const bool isDriven = std::ranges::any_of(lines, [&](const RunLine& line) {
            return line.parameter >= 0 && line.to == static_cast<int>(index);
        });
        auto* const module = dynamic_cast<TCBaseModuleEx*>(modules[index].module);
        if (!isDriven || module == nullptr) continue;
        gates.push_back(std::make_unique<ParameterGate>(*module, modules[index].instance));
        InsertGate(index, modules, lines, *gates.back());
    }
    return gates;
}

}  // namespace host
