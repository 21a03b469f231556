#include "python/src/PythonModule.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <cmath>
#include <cstring>

#include "sigweave/module/ModuleSignals.h"
#include "sigweave/module/TCModuleMessage.h"
#include "sigweave/services/Bilingual.h"
#include "sigweave/signal/UnitText.h"

namespace python {
namespace {

namespace py = pybind11;
using tc::Bilingual;

// Bytes of names and settings need not be UTF-8.
py::str ToPython(const char* text) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(text, static_cast<py::ssize_t>(std::strlen(text)), "replace"));
}

// Kept for good, as the interpreter is.
const py::dtype& DoubleType() {
    static const auto* const doubles = new py::dtype(py::dtype::of<double>());
    return *doubles;
}

py::object Loading(const char* name) {
    return py::module_::import("sigweave._loading").attr(name);
}

// As it is stored, or as people write it.
TCSI_Unit UnitOf(const std::string& text) {
    TCSI_Unit unit;
    if (unit.FromString(text.c_str())) return unit;
    tc::UnitMeaning meaning;
    CString error;
    if (!tc::ReadUnit(text, meaning, error)) throw py::value_error("describe or result: " + error);
    meaning.unit.SetFactor(meaning.Factor());
    return meaning.unit;
}

bool SaysTheSame(const TCTypeInfo& a, const TCTypeInfo& b) {
    return a.GetSignalnameString() == b.GetSignalnameString() && a.GetSamplerate() == b.GetSamplerate() &&
           a.GetUnit() == b.GetUnit() && a.GetRangeMin() == b.GetRangeMin() &&
           a.GetRangeMax() == b.GetRangeMax();
}

}  // namespace

std::string Explain(py::error_already_set& error, std::string& trace) {
    py::object raised = error.value();
    if (error.trace()) PyException_SetTraceback(raised.ptr(), error.trace().ptr());
    try {
        const py::tuple texts = Loading("explain")(raised);
        trace = texts[1].cast<std::string>();
        return texts[0].cast<std::string>();
    } catch (py::error_already_set&) {
        return error.what();
    }
}

PythonModule::PythonModule(int instance, const ModuleClass& moduleClass)
    : TCBaseModuleEx(instance, moduleClass.parameters), kind(moduleClass) {
    if (kind.isSource) DeclareSource();
    std::vector<unsigned> together;
    for (unsigned i = 0; i < kind.inputs.size(); ++i) {
        portHelper->SetPort(INPUT, i, kind.inputs[i].c_str(), "DOUBLE[]", "TIME_DOMAIN", true);
        portHelper->SetObligatoryInput(i);
        together.push_back(i);
    }
    if (together.size() > 1)
        portHelper->SetTriggerInputs(together.data(), static_cast<unsigned>(together.size()));
    for (unsigned i = 0; i < kind.outputs.size(); ++i)
        portHelper->SetPort(OUTPUT, i, kind.outputs[i].c_str(), "DOUBLE[]", "TIME_DOMAIN", true);
}

PythonModule::~PythonModule() {
    const Interpreter interpreter;
    module = py::object();
    execute = py::object();
    inputs.clear();
}

// One line for the user, the traceback for the log.
std::string PythonModule::Say(py::error_already_set& error) const {
    std::string trace;
    std::string line = Explain(error, trace);
    TCModuleMessage::Send(const_cast<PythonModule*>(this)->GetModuleName(), TCModuleMessage::Types::Detail,
                          trace.c_str());
    return line;
}

// What Python raises ends the run.
template <class Work>
int PythonModule::Guard(Work work) {
    const Interpreter interpreter;
    try {
        return work();
    } catch (py::error_already_set& error) {
        return Fail(tc::MODULE_FAILED, Say(error).c_str());
    } catch (const std::exception& refused) {  // what Python returned
        return Fail(tc::MODULE_FAILED, refused.what());
    }
}

py::dict PythonModule::Settings(bool onlyLive) const {
    py::dict values;
    for (const TCModuleParameter& parameter : kind.parameters) {
        if (onlyLive && !parameter.live) continue;
        const TCString text = GetParameter(parameter.name);
        py::object value = ToPython(text);
        if (parameter.kind == TCModuleParameter::INTEGER) value = py::int_(ParamInt(parameter.name));
        if (parameter.kind == TCModuleParameter::NUMBER) value = py::float_(ParamDbl(parameter.name));
        if (parameter.kind == TCModuleParameter::SWITCH) value = py::bool_(ParamBool(parameter.name));
        values[parameter.name] = value;
    }
    return values;
}

int PythonModule::Init() {
    if (const int code = TCBaseModuleEx::Init(); code < 0) return code;
    isDescribed = false;
    start = -1.0;
    if (kind.isSource) runTime.Take();
    return Guard([this] {
        inputs.assign(kind.inputs.size(), {});
        outputs.assign(kind.outputs.size(), {});
        module = Loading("make")(py::handle(kind.type), Settings(false));
        execute = module.attr(kind.isSource ? "fetch" : "execute");
        return 0;
    });
}

bool PythonModule::OnLiveChanged(TCString& error) {
    const Interpreter interpreter;
    if (!module) return true;
    try {
        Loading("change")(module, Settings(true));
        return true;
    } catch (py::error_already_set& raised) {
        error = Say(raised).c_str();
        return false;
    }
}

int PythonModule::Execute() {
    if (kind.isSource) return Guard([this] { return Produce(); });
    if (const int taken = Take(); taken <= 0) return taken;
    if (const std::string why = WhyNotTogether(); !why.empty()) return Fail(tc::MODULE_FAILED, why);
    return Guard([this] { return Step(); });
}

int PythonModule::Take() {
    static const TCTypeInfo NONE;
    for (unsigned i = 0; i < inputs.size(); ++i) {
        if (const int taken = portHelper->TakeBlock(i); taken <= 0) return taken;
        Input& input = inputs[i];
        input.arrived = portHelper->LastTypeInfo(i);
        if (input.arrived == nullptr) input.arrived = &NONE;
        input.values = portHelper->AccessDblData(i, input.count);
    }
    return 1;
}

// Blocks of several inputs are processed together.
std::string PythonModule::WhyNotTogether() const {
    const Input& first = inputs.front();
    for (std::size_t i = 1; i < inputs.size(); ++i) {
        const Input& other = inputs[i];
        const std::initializer_list<std::string_view> names = {kind.inputs[0], kind.inputs[i]};
        if (other.count != first.count)
            return Bilingual(
                       "blocks of '%1' have other lengths than those of '%2'; put Reblock before both",
                       "Blöcke von '%1' sind anders lang als die von '%2'; setzen Sie Reblock vor beide")
                .With(names);
        if (tc::BeginsSignal(other.arrived->GetState()) != tc::BeginsSignal(first.arrived->GetState()) ||
            tc::EndsSignal(other.arrived->GetState()) != tc::EndsSignal(first.arrived->GetState()))
            return Bilingual(
                       "the signals of '%1' and '%2' do not begin and end together; put Align before them",
                       "die Signale von '%1' und '%2' beginnen und enden nicht gemeinsam; setzen Sie Align "
                       "davor")
                .With(names);
        const double rates[] = {first.arrived->GetSamplerate(), other.arrived->GetSamplerate()};
        if (rates[0] != rates[1] && !(std::isnan(rates[0]) && std::isnan(rates[1])))
            return Bilingual("'%1' and '%2' have different samplerates; put Resample before one of them",
                             "'%1' und '%2' haben verschiedene Abtastraten; setzen Sie Resample vor eines")
                .With(names);
    }
    return "";
}

int PythonModule::Step() {
    bool isNew = !isDescribed;
    for (const Input& input : inputs) isNew = isNew || !SaysTheSame(*input.arrived, input.described);
    if (isNew) Describe();
    const Input& first = inputs.front();
    const TCBLOCKSTATUS state = first.arrived->GetState();
    for (Output& output : outputs) output.begins = output.begins || tc::BeginsSignal(state);
    SetStart(first.arrived->GetTimestamp());
    // The end of a signal, without values.
    if (first.count == 0 && tc::EndsSignal(state)) return SendAll(py::none(), *first.arrived, 0);
    return SendAll(Call(), *first.arrived, first.count);
}

int PythonModule::Produce() {
    if (!isDescribed) {
        const double given = module.attr("start").cast<double>() * 1000.0;
        Describe();
        start = given > 0.0 ? given : runTime.Get();
        SetStart(start);
        for (Output& output : outputs) {
            output.said.SetTimestamp(start);
            output.begins = true;
        }
    }
    if (IsInterrupted()) return EndSource();
    const py::object result = Call();
    if (result.is_none()) return EndSource();
    return SendAll(result, TCTypeInfo(), 0);
}

// The end is said in a block of its own: what was sent before went on at once.
int PythonModule::EndSource() {
    portHelper->SetReadyFlag(false);
    for (unsigned i = 0; i < outputs.size(); ++i) {
        Output& output = outputs[i];
        output.sent.SetState(STOP);
        const int code = output.isOpen ? tc::WriteSamples(*portHelper, i, output.sent, nullptr, 0) : 0;
        if (code < 0) return code;
        output.isOpen = false;
    }
    return 0;
}

void PythonModule::SetStart(double milliseconds) {
    static PyObject* const name = PyUnicode_InternFromString("start");
    if (milliseconds == start && !kind.isSource) return;
    start = milliseconds;
    const py::float_ seconds(milliseconds / 1000.0);
    if (PyObject_SetAttr(module.ptr(), name, seconds.ptr()) != 0) throw py::error_already_set();
}

py::object PythonModule::Call() {
    constexpr std::size_t FEW = 16;
    PyObject* few[FEW];
    std::vector<PyObject*> many(inputs.size() > FEW ? inputs.size() : 0);
    PyObject** const arguments = many.empty() ? few : many.data();
    for (std::size_t i = 0; i < inputs.size(); ++i) arguments[i] = ArrayFor(inputs[i]);
    PyObject* const result = PyObject_Vectorcall(execute.ptr(), arguments, inputs.size(), nullptr);
    if (result == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(result);
}

// The values of the block, in an array that nobody else has.
PyObject* PythonModule::ArrayFor(Input& input) const {
    PyObject* made = input.array.ptr();
    const auto isOurs = [&] {
        const auto* const proxy = py::detail::array_proxy(made);
        return Py_REFCNT(made) == 1 && proxy->nd == 1 && proxy->dimensions[0] == input.count &&
               proxy->strides[0] == sizeof(double) && proxy->base == nullptr &&
               proxy->descr == DoubleType().ptr() &&
               (proxy->flags & py::detail::npy_api::NPY_ARRAY_WRITEABLE_) != 0;
    };
    if (made == nullptr || !isOurs()) {
        input.array = py::array_t<double>(input.count);
        made = input.array.ptr();
    }
    const auto bytes = static_cast<std::size_t>(input.count) * sizeof(double);
    if (bytes > 0) std::memcpy(py::detail::array_proxy(made)->data, input.values, bytes);
    return made;
}

// Past the conversions of pybind11 where there is nothing to convert.
PythonModule::Values PythonModule::ValuesOf(PyObject* result) const {
    using Api = py::detail::npy_api;
    if (result == Py_None) return {};
    if (Py_TYPE(result) == Api::get().PyArray_Type_) {
        const auto* const proxy = py::detail::array_proxy(result);
        constexpr int PLAIN = Api::NPY_ARRAY_C_CONTIGUOUS_ | Api::NPY_ARRAY_ALIGNED_;
        if (proxy->nd == 1 && proxy->descr == DoubleType().ptr() && (proxy->flags & PLAIN) == PLAIN)
            return {reinterpret_cast<const double*>(proxy->data), static_cast<int>(proxy->dimensions[0]), {}};
    }
    const std::string step = kind.isSource ? "fetch" : "execute";
    const auto given = py::array::ensure(result);
    if (given && given.dtype().kind() == 'c')
        throw py::type_error(step + " returned complex numbers; return their magnitude, or two outputs");
    const auto array = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(given);
    if (!array) {
        PyErr_Clear();
        throw py::type_error(step + " must return numbers, as an array, or None");
    }
    if (array.ndim() > 1) throw py::value_error(step + " must return an array of one dimension");
    return {array.data(), static_cast<int>(array.size()), array};
}

int PythonModule::SendAll(const py::object& result, const TCTypeInfo& arrived, int taken) {
    if (outputs.empty()) return 0;
    if (outputs.size() == 1 || result.is_none()) {
        for (std::size_t i = 0; i < outputs.size(); ++i)
            if (const int code = Send(i, result.ptr(), arrived, taken); code < 0) return code;
        return 0;
    }
    if (!PyTuple_Check(result.ptr()) || PyTuple_GET_SIZE(result.ptr()) != std::ssize(outputs)) {
        std::string names;
        for (const std::string& name : kind.outputs) names += (names.empty() ? "" : ", ") + name;
        throw py::type_error(std::string(kind.isSource ? "fetch" : "execute") + " must return a tuple of " +
                             std::to_string(outputs.size()) + " arrays, one for each output: " + names);
    }
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        PyObject* const one = PyTuple_GET_ITEM(result.ptr(), static_cast<Py_ssize_t>(i));
        if (const int code = Send(i, one, arrived, taken); code < 0) return code;
    }
    return 0;
}

int PythonModule::Send(std::size_t index, PyObject* result, const TCTypeInfo& arrived, int taken) {
    Output& output = outputs[index];
    const Values values = ValuesOf(result);
    const bool isLast = !kind.isSource && tc::EndsSignal(arrived.GetState());
    if (values.count == 0 && isLast && taken > 0)
        throw py::value_error(
            "execute returned nothing for the last block of a signal, so nobody would know that "
            "it has ended; return at least one value");
    if (values.count == 0 && !(isLast && output.isOpen)) return 0;
    const double rate = output.said.GetSamplerate();
    output.sent.SetTimestamp(
        kind.isSource ? output.said.GetTimestamp() +
                            (rate > 0.0 ? 1000.0 * static_cast<double>(output.position) / rate : 0.0)
                      : arrived.GetTimestamp());
    output.sent.SetState(tc::BlockState(output.begins, isLast));
    output.sent.SetSamplerate(values.count != taken && taken > 0 && values.count > 0
                                  ? rate * static_cast<double>(values.count) / taken
                                  : rate);
    output.begins = false;
    output.isOpen = !isLast;
    output.position += values.count;
    const auto port = static_cast<unsigned>(index);
    if (values.count == 0) return tc::WriteSamples(*portHelper, port, output.sent, nullptr, 0);
    portHelper->SetTypeInfo(port, output.sent);
    return portHelper->WriteDblData(port, static_cast<unsigned long>(values.count), values.data);
}

void PythonModule::Describe() {
    py::list arrived;
    for (Input& input : inputs) {
        TCString unit;
        const TCTypeInfo& info = *input.arrived;
        info.GetUnit().ToString(unit);
        arrived.append(py::make_tuple(ToPython(info.GetSignalname()), ToPython(unit), info.GetSamplerate(),
                                      info.GetRangeMin(), info.GetRangeMax()));
        input.described = info;
    }
    const py::list described = Loading("describe")(module, arrived, outputs.size());
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const py::tuple fields = described[i];
        TCTypeInfo& said = outputs[i].said;
        said = inputs.empty() ? said : *inputs.front().arrived;
        TCString unit;
        said.GetUnit().ToString(unit);
        const auto written = fields[1].cast<std::string>();
        said.SetSignalname(std::string_view(fields[0].cast<std::string>()));
        if (written != std::string(unit)) said.SetUnit(UnitOf(written));
        said.SetSamplerate(fields[2].cast<double>());
        said.SetRangeMin(fields[3].cast<double>());
        said.SetRangeMax(fields[4].cast<double>());
        outputs[i].sent = said;
    }
    isDescribed = true;
}

int PythonModule::Done() {
    const int code = Guard([this] {
        if (!module) return 0;
        module.attr("end")();
        TakeResults();
        module = py::object();
        execute = py::object();
        inputs.clear();
        return 0;
    });
    runTime.Release();
    const int base = TCBaseModuleEx::Done();
    return code < 0 ? code : base;
}

void PythonModule::TakeResults() {
    const TCTypeInfo none;
    const TCTypeInfo& of = !outputs.empty()  ? outputs.front().said
                           : !inputs.empty() ? inputs.front().described
                                             : none;
    for (const py::handle& result : module.attr("_results")) {
        const auto [quantity, value, unit] = result.cast<std::tuple<std::string, double, std::string>>();
        AddResult(of.GetSignalname(), quantity.c_str(), value, UnitOf(unit));
    }
}

}  // namespace python
