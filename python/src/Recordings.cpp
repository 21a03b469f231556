#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>

#include "python/src/Arrays.h"
#include "python/src/PackedRecording.h"
#include "python/src/Recording.h"

namespace py = pybind11;

namespace python {
namespace {

using Packed = std::shared_ptr<PackedRecording>;
using Shape = std::vector<py::ssize_t>;

py::tuple ReadXml(const std::string& path) {
    Recording recording;
    {
        const py::gil_scoped_release unlocked;
        recording = ReadRecording(path);
    }
    return py::make_tuple(PartsOf(recording.track), ToPython(recording.missing), ToPython(recording.error),
                          recording.blocks);
}

py::tuple Open(const std::string& path) {
    std::string error;
    Packed recording;
    {
        const py::gil_scoped_release unlocked;
        recording = PackedRecording::Open(path, error);
    }
    return py::make_tuple(recording, ToPython(error));
}

// The moments of blocks, numbered as they follow each other in one array; see MarksOf.
py::object MarksOf(const PackedRecording& recording, const std::vector<Place>& places) {
    const auto count = static_cast<py::ssize_t>(places.size());
    py::array_t<double> table({count, py::ssize_t{5}});
    double* cell = table.mutable_data();
    std::int64_t first = 0;
    for (const Place& place : places) {
        const FrameTime time = recording.TimeOf(place);
        for (const double value : {static_cast<double>(first), static_cast<double>(place.count), time.start,
                                   time.rate, static_cast<double>(time.state)})
            *cell++ = value;
        first += place.count;
    }
    return table;
}

const char* DtypeOf(Kind kind) {
    return kind == Kind::Doubles ? "float64" : kind == Kind::Ints ? "int32" : "object";
}

py::dict Describe(PackedRecording& recording, std::size_t index) {
    const RecordedPart part = recording.Part(index);
    const tc::RecordingSignal signal = recording.SignalOf(part);
    py::dict made;
    made["name"] = ToPython(part.channel.empty() ? signal.name : part.channel);
    made["port"] = ToPython(signal.port);
    made["channel"] = ToPython(part.channel);
    made["signal"] = part.signal;
    made["type"] = ToPython(signal.type);
    made["blocks"] = signal.blocks;
    made["dtype"] = DtypeOf(part.kind);
    made["spectrum"] = part.isSpectrum;
    made["info"] = InfoToPython(InfoOf(&part.info));
    return made;
}

Shape ShapeOf(PackedRecording& recording, std::size_t index) {
    const auto length = static_cast<py::ssize_t>(recording.Length(index));
    const auto [rows, columns] = recording.RowShape(index);
    if (rows == 0 && columns == 0) return {length};
    return recording.Part(index).dimensions == 2 ? Shape{length, rows, columns} : Shape{length, columns};
}

py::object KeepAlive(const PackedRecording& recording) {
    auto* const kept = new std::shared_ptr<const char>(recording.File());
    return py::capsule(kept, [](void* held) { delete static_cast<std::shared_ptr<const char>*>(held); });
}

// An array of its own, in memory that NumPy takes, for that knows how to take much of it at once. What keeps
// it alive is no array, so that nobody can make it writable.
py::object Copied(PackedRecording& recording, const RecordedPart& part, RecordedSlice& slice, Shape shape) {
    const py::dtype& type = TypeOf(part.kind);
    py::array memory(type, Shape{slice.count});
    auto* const room = static_cast<char*>(memory.mutable_data());
    {
        const py::gil_scoped_release unlocked;
        recording.Copy(part, slice, room);
    }
    shape[0] = shape.size() > 1 ? std::ssize(slice.places) : slice.count;
    const auto release = [](void* held) { Py_DECREF(static_cast<PyObject*>(held)); };
    const py::capsule owner(static_cast<void*>(memory.release().ptr()),
                            static_cast<void (*)(void*)>(release));
    return ViewOf(type, static_cast<int>(shape.size()), shape.data(), room, owner);
}

// Values from `begin` to `end` with their table of blocks, what the first block says, where they begin in the
// first block, and whether some are lost.
py::tuple Read(PackedRecording& recording, std::size_t index, std::int64_t begin, std::int64_t end) {
    RecordedSlice slice;
    {
        const py::gil_scoped_release unlocked;
        recording.CheckIsThere();
        slice = recording.Find(index, begin, end);
    }
    const RecordedPart part = recording.Part(index);
    Shape shape = {slice.count};
    if (part.isByBlock) {
        shape = ShapeOf(recording, index);
        shape[0] = std::ssize(slice.places);
    }
    const char* const there = recording.View(part, slice);
    const py::object values = there != nullptr ? ViewOf(TypeOf(part.kind), static_cast<int>(shape.size()),
                                                        shape.data(), there, KeepAlive(recording))
                                               : Copied(recording, part, slice, shape);
    const TCTypeInfo info = slice.places.empty() ? part.info : recording.InfoAt(slice.places.front());
    return py::make_tuple(values, MarksOf(recording, slice.places), InfoToPython(InfoOf(&info)), slice.skip,
                          slice.isLossy);
}

py::tuple Decode(const std::string& path, int signal) {
    std::string error;
    Track track;
    {
        const py::gil_scoped_release unlocked;
        track = DecodeSignal(path, signal, error);
    }
    return py::make_tuple(PartsOf(track), ToPython(error));
}

py::tuple Check(const std::string& path) {
    std::string error;
    std::vector<std::string> found;
    {
        const py::gil_scoped_release unlocked;
        found = CheckRecording(path, error);
    }
    py::list texts;
    for (const std::string& text : found) texts.append(ToPython(text));
    return py::make_tuple(texts, ToPython(error));
}

py::dict FactsOf(const PackedRecording& recording) {
    py::dict made;
    for (const auto& [name, value] : recording.Facts()) made[ToPython(name)] = ToPython(value);
    return made;
}

}  // namespace

void BindRecordings(py::module_& core) {
    using Unlocked = py::call_guard<py::gil_scoped_release>;
    py::class_<PackedRecording, Packed>(core, "PackedRecording")
        .def("parts",
             [](PackedRecording& recording) {
                 py::list made;
                 for (std::size_t i = 0; i < recording.PartCount(); ++i) made.append(Describe(recording, i));
                 return made;
             })
        .def("shape",
             [](PackedRecording& recording, std::size_t part) {
                 Shape shape;
                 {
                     const py::gil_scoped_release unlocked;
                     shape = ShapeOf(recording, part);
                 }
                 return py::tuple(py::cast(shape));
             })
        .def("read", &Read, py::arg("part"), py::arg("begin"), py::arg("end"))
        .def("marks",
             [](PackedRecording& recording, std::size_t part) {
                 std::vector<Place> places;
                 {
                     const py::gil_scoped_release unlocked;
                     recording.CheckIsThere();
                     places = recording.Places(part);
                 }
                 return MarksOf(recording, places);
             })
        .def("locate", &PackedRecording::Locate, py::arg("part"), py::arg("seconds"), Unlocked())
        .def("facts", &FactsOf)
        .def("missing", [](PackedRecording& recording) { return ToPython(recording.Missing()); })
        .def("is_being_written", &PackedRecording::IsBeingWritten)
        .def("block_count", &PackedRecording::BlockCount);
    core.def("open_packed", &Open);
    core.def("decode_packed", &Decode);
    core.def("check_packed", &Check);
    core.def("read_recording", &ReadXml);
}

}  // namespace python
