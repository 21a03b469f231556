// The part of the package that Python calls: sigweave._core. What users see is in the Python files.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "host/Conversion.h"
#include "host/GraphText.h"
#include "host/GraphXml.h"
#include "host/Language.h"
#include "host/ModuleCatalogue.h"
#include "host/ModuleLibrary.h"
#include "host/ModuleListing.h"
#include "host/ProgressLine.h"
#include "host/Report.h"
#include "python/src/Arrays.h"
#include "python/src/Session.h"
#include "sigweave/persistence/TCXML.h"
#include "sigweave/platform/ReplacedFile.h"

namespace py = pybind11;

namespace {

using python::ArrayOf;
using python::PartsOf;
using python::Samples;
using python::Session;
using python::ToPython;

// --- Live blocks

const Samples& SamplesOf(const python::LiveBlock& block) {
    static const Samples NONE;
    for (const python::Track::Part& part : block.track.parts)
        if (!part.samples->marks.empty()) return *part.samples;
    return NONE;
}

const Samples& ChannelOf(const python::LiveBlock& block, const std::string& name) {
    for (const python::Track::Part& part : block.track.parts)
        if (part.name == name && !part.samples->marks.empty()) return *part.samples;
    std::string known;
    for (const python::Track::Part& part : block.track.parts)
        if (!part.samples->marks.empty()) known += (known.empty() ? "" : ", ") + part.name;
    throw py::key_error("the block has no channel '" + name + "'; " +
                        (known.empty() ? "its values are block.values" : "it has: " + known));
}

py::object View(const Samples& samples, const py::object& block) {
    if (samples.marks.empty()) {
        constexpr py::ssize_t NONE = 0;
        return ArrayOf(samples, 1, &NONE, block);
    }
    const Samples::Mark& mark = samples.marks[0];
    const py::ssize_t shape[] = {mark.rows, mark.columns};
    const py::ssize_t count = mark.count;
    return samples.dimensions == 2 ? ArrayOf(samples, 2, shape, block) : ArrayOf(samples, 1, &count, block);
}

py::list ChannelsOf(const python::LiveBlock& block) {
    py::list names;
    for (const python::Track::Part& part : block.track.parts)
        if (!part.samples->marks.empty() && !part.name.empty()) names.append(ToPython(part.name));
    return names;
}

std::int64_t LengthOf(const python::LiveBlock& block) {
    const Samples& samples = SamplesOf(block);
    return samples.marks.empty() ? 0 : samples.marks[0].count;
}

std::string Represent(const python::LiveBlock& block) {
    const python::Info& info = SamplesOf(block).info;
    return "<Block " + std::to_string(block.number) + " of " + block.output + ": " +
           std::to_string(LengthOf(block)) + " values" + (info.unit.empty() ? "" : " in " + info.unit) + ">";
}

py::object TimeOf(const python::LiveBlock& block) {
    const Samples& samples = SamplesOf(block);
    const bool isMatrix = samples.dimensions == 2 && !samples.marks.empty();
    const py::object numbers = py::module_::import("numpy").attr("arange")(
        isMatrix ? std::int64_t{samples.marks[0].columns} : LengthOf(block), py::arg("dtype") = "float64");
    return samples.info.rate > 0.0 ? numbers / py::float_(samples.info.rate) : numbers;
}

using BlockClass = py::class_<python::LiveBlock, std::shared_ptr<python::LiveBlock>>;

void BindValues(BlockClass& block) {
    using Block = python::LiveBlock;
    block
        .def_property_readonly(
            "values", [](const py::object& self) { return View(SamplesOf(self.cast<const Block&>()), self); },
            "Its values, read-only and without a copy, which keep the block alive; of a bus those of the "
            "first channel.\nOne dimension, or two for a matrix.")
        .def(
            "__array__",
            [](const py::object& self, const py::object& type) {
                const py::object values = View(SamplesOf(self.cast<const Block&>()), self);
                return type.is_none() ? values : values.attr("astype")(type);
            },
            py::arg("dtype") = py::none())
        .def(
            "__getitem__",
            [](const py::object& self, const py::object& name) {
                if (!py::isinstance<py::str>(name))
                    throw py::type_error(
                        "block['name'] has the values of a channel; by number they are block.values[0]");
                return View(ChannelOf(self.cast<const Block&>(), name.cast<std::string>()), self);
            },
            "The values of a channel. KeyError when the block has none of that name.")
        .def("__len__", &LengthOf)
        .def("time", &TimeOf,
             "Seconds after its start, one for each value; of spectra the frequencies, in hertz. Without a "
             "rate the numbers\nof the values.")
        .def("_ipython_key_completions_", &ChannelsOf)
        .def("__repr__", [](const Block& self) { return ToPython(Represent(self)); });
}

void BindBlock(py::module_& core) {
    using Block = python::LiveBlock;
    BlockClass block(core, "Block",
                     "One block of a stream. It may go wherever an array may; `values` is a view of it.");
    BindValues(block);
    block
        .def_property_readonly(
            "output", [](const Block& self) { return ToPython(self.output); },
            "INSTANCE.OUTPUT that it comes from.")
        .def_readonly("number", &Block::number, "In its output, counted from 0.")
        .def_property_readonly("channels", &ChannelsOf,
                               "The names of a bus's channels; empty for other blocks.")
        .def_property_readonly(
            "name", [](const Block& self) { return ToPython(SamplesOf(self).info.name); },
            "That its signal has.")
        .def_property_readonly(
            "unit", [](const Block& self) { return ToPython(SamplesOf(self).info.unit); },
            "Of its values, as people write it: mV; empty: none.")
        .def_property_readonly(
            "rate", [](const Block& self) { return SamplesOf(self).info.rate; },
            "Values a second, of spectra a hertz; 0: not known.")
        .def_property_readonly(
            "start", [](const Block& self) { return SamplesOf(self).info.start; },
            "The moment of its first value, in seconds since 1970-01-01 00:00 UTC.")
        .def_property_readonly(
            "is_spectrum", [](const Block& self) { return SamplesOf(self).isSpectrum; },
            "Whether its values lie over frequencies.")
        .def_property_readonly(
            "state",
            [](const Block& self) {
                return TCTypeInfo::BlockStateToString(static_cast<TCBLOCKSTATUS>(SamplesOf(self).info.state));
            },
            "START, BUSY, STOP, COMPLETE or INVALID.");
}

// --- Runs

py::dict PlaceToPython(const host::Mistake& mistake) {
    py::dict made;
    made["source"] = ToPython(mistake.place.source);
    made["line"] = mistake.place.line;
    made["text"] = ToPython(mistake.text);
    return made;
}

py::list MessagesOf(const host::RunReport& report) {
    py::list made;
    for (const host::Message& message : report.messages) {
        py::dict one;
        one["severity"] = host::ToText(message.severity);
        one["instance"] = ToPython(message.instance);
        one["text"] = ToPython(host::WriteMessage(message));
        one["times"] = message.times;
        made.append(one);
    }
    return made;
}

py::dict ReportOf(Session& session, const std::string& graph) {
    const host::RunReport& report = session.Report();
    py::dict made;
    made["verdict"] = host::ToText(report.verdict);
    made["explanation"] = ToPython(report.explanation);
    made["json"] = ToPython(host::WriteJson(report, graph));
    made["text"] = ToPython(host::WriteTable(report) + host::WriteWarnings(report, host::Warnings::All) +
                            host::WriteVerdict(report, graph));
    made["seconds"] = report.seconds;
    made["signal_seconds"] = report.signalSeconds;
    made["messages"] = MessagesOf(report);
    py::list mistakes;
    for (const host::Mistake& mistake : report.mistakes) mistakes.append(PlaceToPython(mistake));
    made["mistakes"] = mistakes;
    py::list results;
    for (const host::ModuleReport& module : report.modules)
        for (const host::ResultReport& result : module.results)
            results.append(py::make_tuple(ToPython(module.instance), ToPython(result.signal),
                                          ToPython(result.quantity), result.value,
                                          ToPython(host::ShownUnit(result.unit))));
    made["results"] = results;
    py::list failures;
    for (const host::FailureReport& failure : report.failures)
        failures.append(py::make_tuple(ToPython(failure.instance), failure.code, ToPython(failure.port),
                                       ToPython(failure.reason), session.LineOf(failure.instance)));
    made["failures"] = failures;
    made["trouble"] = ToPython(session.Trouble());
    made["modules"] = session.Modules();
    made["lines"] = session.Lines();
    return made;
}

// Its end waits for the run's, which may need the interpreter.
struct CloseUnlocked {
    void operator()(Session* session) const {
        const py::gil_scoped_release unlocked;
        delete session;
    }
};
using SessionPointer = std::unique_ptr<Session, CloseUnlocked>;

// Python calls none of these while it keeps others from running.
void BindSession(py::module_& core) {
    using Unlocked = py::call_guard<py::gil_scoped_release>;
    py::class_<Session, SessionPointer>(core, "Session")
        .def(py::init([](const std::string& path, const std::optional<std::string>& text,
                         const std::vector<std::string>& settings, const std::vector<std::string>& folders,
                         const std::vector<std::string>& outputs, bool realtime, bool check, int threads,
                         int capacity) {
                 return SessionPointer(new Session(python::Request{
                     {path, text, settings, folders, {}}, outputs, realtime, check, threads, capacity}));
             }),
             py::arg("path"), py::arg("text"), py::arg("settings"), py::arg("folders"), py::arg("outputs"),
             py::arg("realtime"), py::arg("check"), py::arg("threads"), py::arg("capacity"))
        .def("start", &Session::Start, Unlocked())
        .def("wait", &Session::Wait, py::arg("milliseconds"), Unlocked())
        .def("interrupt", &Session::Interrupt, Unlocked())
        .def("close", &Session::Close, Unlocked())
        .def(
            "next",
            [](Session& session, int milliseconds) -> py::object {
                bool isOver = false;
                std::shared_ptr<python::LiveBlock> block;
                {
                    const py::gil_scoped_release unlocked;
                    block = session.Next(milliseconds, isOver);
                }
                if (block != nullptr) return py::cast(std::move(block));
                return isOver ? py::object(py::bool_(false)) : py::object(py::none());
            },
            py::arg("milliseconds"))
        .def("progress",
             [](Session& session) {
                 const host::RunProgress now = session.Progress();
                 return py::make_tuple(now.signalSeconds, now.share, now.bytes, now.seconds,
                                       ToPython(host::WriteProgress(now)));
             })
        .def("held", &Session::Held)
        .def("report", &ReportOf, py::arg("graph"))
        .def("kept", [](Session& session) {
            py::list made;
            for (const python::Track& track : session.Kept()) made.append(PartsOf(track));
            return made;
        });
}

// --- Graphs

py::list MistakesOf(const host::Mistakes& mistakes) {
    py::list made;
    for (const host::Mistake& mistake : mistakes.InOrder()) made.append(PlaceToPython(mistake));
    return made;
}

host::PortName PortOf(const std::string& name) {
    const std::size_t point = name.find('.');
    if (point == std::string::npos || point == 0 || point + 1 == name.size())
        throw py::value_error("'" + name + "' must be INSTANCE.PORT, for example voice.Channel 1");
    return {name.substr(0, point), name.substr(point + 1)};
}

host::InstanceEntry& InstanceOf(host::GraphFile& file, const std::string& name) {
    host::InstanceEntry* const found = file.FindInstance(name);
    if (found == nullptr) throw py::key_error("there is no instance '" + name + "'");
    return *found;
}

void SetSetting(host::InstanceEntry& instance, const std::string& name, const std::string& value) {
    for (host::Setting& setting : instance.settings) {
        if (setting.name != name) continue;
        setting.value = value;
        return;
    }
    instance.settings.push_back({name, value, {}, false, false});
}

// The text of the graph; a name that it cannot say raises ValueError.
std::string TextOf(const host::GraphFile& file, bool xml) {
    std::string text;
    if (xml) {
        TCXML document;
        TCString written;
        if (host::WriteGraphXml(file, document)) document.GetNodeXML(document.GetDocument(), written);
        text = std::string(written);
    } else {
        text = host::WriteGraphText(file);
    }
    if (text.empty()) return text;
    host::Mistakes mistakes;
    const std::string lost = host::FindDifference(file, host::GraphFile::Parse("graph", text, mistakes));
    if (lost.empty()) return text;
    throw py::value_error(lost + " cannot be said in a graph file; give it a simpler name");
}

// What changes a graph.
void BindChanges(py::class_<host::GraphFile>& graph) {
    using File = host::GraphFile;
    graph
        .def(
            "add",
            [](File& file, const std::string& name, const std::string& module) {
                if (file.FindInstance(name) != nullptr)
                    throw py::value_error("there is an instance '" + name + "' already; choose another name");
                file.EditInstances().push_back({name, module, {}, {}, {}});
            })
        .def("remove",
             [](File& file, const std::string& name) {
                 InstanceOf(file, name);
                 std::erase_if(file.EditInstances(), [&](const auto& entry) { return entry.name == name; });
                 std::erase_if(file.EditLines(), [&](const host::LineEntry& line) {
                     return line.from.instance == name || line.to.instance == name;
                 });
             })
        .def("set", [](File& file, const std::string& instance, const std::string& name,
                       const std::string& value) { SetSetting(InstanceOf(file, instance), name, value); })
        .def("unset",
             [](File& file, const std::string& instance, const std::string& name) {
                 std::erase_if(InstanceOf(file, instance).settings,
                               [&](const host::Setting& setting) { return setting.name == name; });
             })
        .def("connect",
             [](File& file, const std::string& from, const std::string& to) {
                 file.EditLines().push_back({PortOf(from), PortOf(to), {}});
             })
        .def("disconnect", [](File& file, const std::string& from, const std::string& to) {
            const host::PortName source = PortOf(from);
            const host::PortName target = PortOf(to);
            return std::erase_if(file.EditLines(), [&](const host::LineEntry& line) {
                return line.from.instance == source.instance && line.from.port == source.port &&
                       line.to.instance == target.instance && line.to.port == target.port;
            });
        });
}

void BindGraph(py::module_& core) {
    using File = host::GraphFile;
    py::class_<File> graph(core, "GraphFile");
    BindChanges(graph);
    graph.def(py::init<>())
        .def_static("read",
                    [](const std::string& path, const std::optional<std::string>& text) {
                        host::Mistakes mistakes;
                        File file = text ? File::Parse(path, *text, mistakes) : File::Read(path, mistakes);
                        return py::make_tuple(std::move(file), MistakesOf(mistakes));
                    })
        .def("instances",
             [](const File& file) {
                 py::list made;
                 for (const host::InstanceEntry& entry : file.GetInstances())
                     made.append(py::make_tuple(ToPython(entry.name), ToPython(entry.module)));
                 return made;
             })
        .def("settings",
             [](File& file, const std::string& name) {
                 py::dict made;
                 for (const host::Setting& setting : InstanceOf(file, name).settings)
                     made[ToPython(setting.name)] = ToPython(setting.value);
                 return made;
             })
        .def("lines",
             [](const File& file) {
                 py::list made;
                 for (const host::LineEntry& line : file.GetLines())
                     made.append(py::make_tuple(ToPython(PortText(line.from)), ToPython(PortText(line.to))));
                 return made;
             })
        .def("text", [](const File& file, bool xml) { return ToPython(TextOf(file, xml)); })
        .def_property("accepts_differences", &File::AcceptsDifferences,
                      py::overload_cast<bool>(&File::AcceptDifferences));
}

// The declarations of the modules in these folders, as JSON, and what is wrong with the folders.
py::tuple ListModules(const std::vector<std::string>& folders) {
    std::vector<std::string> declared;
    std::vector<std::string> problems;
    {
        const py::gil_scoped_release unlocked;
        const host::ModuleCatalogue catalogue(folders);
        problems = catalogue.Problems();
        for (const auto& [id, entry] : catalogue.Entries()) {
            std::string text;
            (host::DeclareModule(catalogue, entry, text) ? declared : problems).push_back(std::move(text));
        }
    }
    py::list texts;
    for (const std::string& text : declared) texts.append(ToPython(text));
    py::list wrong;
    for (const std::string& problem : problems) wrong.append(ToPython(problem));
    return py::make_tuple(texts, wrong);
}

// Whole or not at all; what is there keeps its owner and mode.
void WriteFile(const std::string& path, const std::string& text) {
    errno = 0;
    const auto file = tc::ReplacedFile::Open(path);
    if (file != nullptr && std::fwrite(text.data(), 1, text.size(), file->Get()) == text.size() &&
        file->Commit())
        return;
    errno = errno != 0 ? errno : EIO;
    PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
    throw py::error_already_set();
}

}  // namespace

PYBIND11_MODULE(_core, core) {
    core.doc() = "What the package sigweave is built on; its names may change.";
    std::vector<std::string> arguments;
    host::ChooseLanguage(arguments);
    BindBlock(core);
    BindSession(core);
    BindGraph(core);
    python::BindRecordings(core);
    core.def("set_default_folder", &host::ModuleCatalogue::SetDefaultFolder);
    core.def("set_python_loader", &host::ModuleLibrary::SetPythonLoader);
    core.def("list_modules", &ListModules);
    core.def("write_file", &WriteFile);
    core.attr("VERSION") = SIGWEAVE_PYTHON_VERSION;
}
