#include "python/src/Arrays.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace py = pybind11;

namespace python {

py::str ToPython(const std::string& text) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "replace"));
}

using Shape = std::vector<py::ssize_t>;

// Past pybind11's class for arrays, which takes twice as long.
py::object ViewOf(const py::dtype& type, int dimensions, const py::ssize_t* shape, const void* data,
                  const py::object& base) {
    const py::detail::npy_api& numpy = py::detail::npy_api::get();
    const int flags = py::detail::npy_api::NPY_ARRAY_ALIGNED_ | py::detail::npy_api::NPY_ARRAY_C_CONTIGUOUS_;
    py::object view = py::reinterpret_steal<py::object>(
        numpy.PyArray_NewFromDescr_(numpy.PyArray_Type_, type.inc_ref().ptr(), dimensions, shape, nullptr,
                                    const_cast<void*>(data), flags, nullptr));
    if (!view || numpy.PyArray_SetBaseObject_(view.ptr(), base.inc_ref().ptr()) != 0)
        throw py::error_already_set();
    return view;
}

// Kept for good: the interpreter may be gone when static variables end.
const py::dtype& TypeOf(Kind kind) {
    static const auto* const doubles = new py::dtype(py::dtype::of<double>());
    static const auto* const ints = new py::dtype(py::dtype::of<int>());
    return kind == Kind::Ints ? *ints : *doubles;
}

// The shape of all blocks together: spectra and matrices have a row of their own a block, where all are
// equal.
static Shape ShapeOf(const Samples& samples) {
    std::int64_t total = 0;
    bool areEqual = !samples.marks.empty();
    for (const Samples::Mark& mark : samples.marks) {
        total += mark.count;
        areEqual = areEqual && mark.rows == samples.marks.front().rows &&
                   mark.columns == samples.marks.front().columns;
    }
    const bool byBlock = (samples.isSpectrum || samples.dimensions == 2) && areEqual;
    if (!byBlock) return {total};
    const auto blocks = static_cast<py::ssize_t>(samples.marks.size());
    const Samples::Mark& first = samples.marks.front();
    if (samples.dimensions == 2) return {blocks, first.rows, first.columns};
    return {blocks, first.columns};
}

py::object ArrayOf(const Samples& samples, int dimensions, const py::ssize_t* shape, const py::object& base) {
    static constexpr double NONE = 0.0;
    const void* const data = samples.memory.Size() > 0 ? samples.memory.Data() : &NONE;
    if (samples.kind != Kind::Texts) return ViewOf(TypeOf(samples.kind), dimensions, shape, data, base);
    py::list texts;
    for (const std::string& text : samples.texts) texts.append(ToPython(text));
    return py::module_::import("numpy").attr("array")(texts, py::arg("dtype") = "object");
}

static py::object ValuesOf(const std::shared_ptr<Samples>& samples) {
    auto* const kept = new std::shared_ptr<Samples>(samples);
    const py::capsule base(kept, [](void* held) { delete static_cast<std::shared_ptr<Samples>*>(held); });
    const Shape shape = ShapeOf(*samples);
    return ArrayOf(*samples, static_cast<int>(shape.size()), shape.data(), base);
}

py::object MarksOf(const Samples& samples) {
    const auto count = static_cast<py::ssize_t>(samples.marks.size());
    py::array_t<double> table({count, py::ssize_t{5}});
    auto cell = table.mutable_unchecked<2>();
    for (py::ssize_t i = 0; i < count; ++i) {
        const Samples::Mark& mark = samples.marks[static_cast<std::size_t>(i)];
        cell(i, 0) = static_cast<double>(mark.first);
        cell(i, 1) = static_cast<double>(mark.count);
        cell(i, 2) = mark.start;
        cell(i, 3) = mark.rate;
        cell(i, 4) = mark.state;
    }
    return table;
}

py::dict InfoToPython(const Info& info) {
    py::dict made;
    made["name"] = ToPython(info.name);
    made["start"] = info.start;
    made["rate"] = info.rate;
    made["unit"] = ToPython(info.unit);
    made["stored_unit"] = ToPython(info.storedUnit);
    made["low"] = info.low;
    made["high"] = info.high;
    return made;
}

py::list PartsOf(const Track& track) {
    py::list made;
    for (const Track::Part& part : track.parts) {
        const Samples& samples = *part.samples;
        if (samples.marks.empty()) continue;
        py::dict one;
        one["name"] = ToPython(part.name);
        one["values"] = ValuesOf(part.samples);
        one["marks"] = MarksOf(samples);
        one["info"] = InfoToPython(samples.info);
        one["spectrum"] = samples.isSpectrum;
        one["refused"] = samples.refused;
        made.append(one);
    }
    return made;
}

}  // namespace python
