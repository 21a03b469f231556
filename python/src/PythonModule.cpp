#include "python/src/PythonModule.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

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
    portHelper->SetPort(INPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    portHelper->SetPort(OUTPUT, 0, "Signal", "DOUBLE[]", "TIME_DOMAIN", true);
    portHelper->SetObligatoryInput(0);
}

PythonModule::~PythonModule() {
    const Interpreter interpreter;
    module = py::object();
    execute = py::object();
}

// What Python raises ends the run: one line for the user, the traceback for the log.
template <class Work>
int PythonModule::Guard(Work work) {
    const Interpreter interpreter;
    try {
        return work();
    } catch (py::error_already_set& error) {
        std::string trace;
        const std::string line = Explain(error, trace);
        TCModuleMessage::Send(GetModuleName(), TCModuleMessage::Types::Detail, trace.c_str());
        return Fail(tc::MODULE_FAILED, line.c_str());
    } catch (const std::exception& refused) {  // what Python returned
        return Fail(tc::MODULE_FAILED, refused.what());
    }
}

py::dict PythonModule::Settings() const {
    py::dict values;
    for (const TCModuleParameter& parameter : kind.parameters) {
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
    isDescribed = begins = false;
    return Guard([this] {
        module = Loading("make")(py::handle(kind.type), Settings());
        execute = module.attr("execute");
        return 0;
    });
}

int PythonModule::Execute() {
    if (const int taken = portHelper->TakeBlock(0); taken <= 0) return taken;
    const TCTypeInfo* const found = portHelper->LastTypeInfo(0);
    return Guard([&] { return Step(found != nullptr ? *found : TCTypeInfo()); });
}

int PythonModule::Step(const TCTypeInfo& arrived) {
    if (!isDescribed || !SaysTheSame(arrived, described)) Describe(arrived);
    begins = begins || tc::BeginsSignal(arrived.GetState());
    int count = 0;
    const double* const values = portHelper->AccessDblData(0, count);
    module.attr("start") = arrived.GetTimestamp() / 1000.0;
    return Send(execute(py::array_t<double>(count, values)), arrived, count);
}

int PythonModule::Send(const py::object& values, const TCTypeInfo& arrived, int taken) {
    py::array_t<double, py::array::c_style | py::array::forcecast> array;
    if (!values.is_none()) {
        array = decltype(array)::ensure(values);
        if (!array) {
            PyErr_Clear();
            throw py::type_error("execute must return numbers, as an array, or None");
        }
    }
    const bool isLast = tc::EndsSignal(arrived.GetState());
    const py::ssize_t count = array.size();
    if (array.ndim() > 1) throw py::value_error("execute must return an array of one dimension");
    if (count == 0 && isLast && taken > 0)
        throw py::value_error(
            "execute returned nothing for the last block of a signal, so nobody would know that "
            "it has ended; return at least one value");
    if (count == 0) return 0;
    TCTypeInfo sent = said;
    sent.SetTimestamp(arrived.GetTimestamp());
    sent.SetState(tc::BlockState(begins, isLast));
    if (count != taken && taken > 0)
        sent.SetSamplerate(said.GetSamplerate() * static_cast<double>(count) / taken);
    begins = false;
    portHelper->SetTypeInfo(0, sent);
    return portHelper->WriteDblData(0, static_cast<unsigned long>(count), array.data());
}

void PythonModule::Describe(const TCTypeInfo& arrived) {
    TCString unit;
    arrived.GetUnit().ToString(unit);
    const py::tuple fields =
        Loading("describe")(module, ToPython(arrived.GetSignalname()), ToPython(unit),
                            arrived.GetSamplerate(), arrived.GetRangeMin(), arrived.GetRangeMax());
    const auto written = fields[1].cast<std::string>();
    said = arrived;
    said.SetSignalname(std::string_view(fields[0].cast<std::string>()));
    if (written != std::string(unit)) said.SetUnit(UnitOf(written));
    said.SetSamplerate(fields[2].cast<double>());
    said.SetRangeMin(fields[3].cast<double>());
    said.SetRangeMax(fields[4].cast<double>());
    described = arrived;
    isDescribed = true;
}

int PythonModule::Done() {
    const int code = Guard([this] {
        if (!module) return 0;
        module.attr("end")();
        TakeResults();
        module = py::object();
        execute = py::object();
        return 0;
    });
    const int base = TCBaseModuleEx::Done();
    return code < 0 ? code : base;
}

void PythonModule::TakeResults() {
    for (const py::handle& result : module.attr("_results")) {
        const auto [quantity, value, unit] = result.cast<std::tuple<std::string, double, std::string>>();
        AddResult(said.GetSignalname(), quantity.c_str(), value, UnitOf(unit));
    }
}

}  // namespace python
